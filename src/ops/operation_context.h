// What every flow is given, and what every flow answers.
#pragma once

#include "base/error.h"
#include "base/host.h"
#include "fs/mount_table.h"
#include "ops/front_end.h"
#include "probe/file_system_kind.h"
#include "settings/options.h"
#include "settings/program_folders.h"

namespace tallowin {

struct OperationContext {
  FrontEnd& ui;
  Host& host;
  const Options& options;
  const ProgramFolders& folders;
  const FileSystemKinds& fileSystems;
  MountTable& mounts;
};

enum class FlowEnd {
  done,
  doneWithLosses,  // what was lost was told, and accepted
  cancelled,       // by the user; what was done before was told
  refused,         // nothing was written; the reason was told
  failed,          // the reason was told
};

// The flow has told the user everything already; `code` is for scripts. A flow that
// changed a table has read the drive again before it returns, so entries on hand are stale.
struct [[nodiscard]] FlowResult {
  FlowEnd end = FlowEnd::done;
  Failure code = Error::none;

  bool succeeded() const { return end == FlowEnd::done || end == FlowEnd::doneWithLosses; }
};

}  // namespace tallowin
