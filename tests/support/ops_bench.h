// What the tests of flows stand on: a made-up machine, options, folders and a scripted user.
#pragma once

#include <gtest/gtest.h>

#include "ops/file_systems.h"
#include "ops/operation_context.h"
#include "support/fake_host.h"
#include "support/scripted_front_end.h"
#include "support/temp_folder.h"

namespace tallowin {

// A machine whose clock moves on by `step` nanoseconds at each look.
class SteppingHost : public FakeHost {
 public:
  u64 monotonicNanoseconds() override { return now += step; }

  u64 now = 1;
  u64 step = 1'000'000'000;
};

class OpsTest : public ::testing::Test {
 protected:
  TempFolder home_;
  SteppingHost host_;
  Options options_;
  ProgramFolders folders_{home_.path(), home_.path(), home_.path()};
  ScriptedFrontEnd ui_;
  const FileSystemKinds fileSystems_ = registeredFileSystems();
  MountTable mounts_{fileSystems_};
  OperationContext context_{ui_, host_, options_, folders_, fileSystems_, mounts_};
};

}  // namespace tallowin
