// The MBR editor with a scripted user: only Apply changes the disk.
#include "app/mbr_view_model.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "disk/faulty_disk.h"
#include "disk/memory_disk.h"
#include "probe/type_catalogue.h"
#include "support/ops_bench.h"
#include "support/sfdisk.h"
#include "support/table_rows.h"

namespace tallowin {
namespace {

constexpr u64 kSectors = 204800;
constexpr const char* kScript =
    "label: dos\nlabel-id: 0x12345678\n1:start=2048,size=4096,type=83\n"
    "2:start=20480,size=102400,type=f\n3:start=8192,size=4096,type=7,bootable\n"
    "5:start=22528,size=8192,type=83\n";
constexpr const char* kDone = "The Operation Completed Successfully";
constexpr const char* kPlaceHolder = "Deleting this GPT place holder";

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class MbrViewTest : public OpsTest {
 protected:
  // Opens the editor on the disk. `act` is the user in it; what else is asked was to be expected
  // by then, or is by `act`.
  FlowResult view(const std::function<void(MbrViewModel&)>& act) {
    ui_.expect<MbrViewModel>(act);
    DriveOpenOptions options;
    std::unique_ptr<Drive> drive;
    EXPECT_EQ(Error::none, Drive::open(std::shared_ptr<DiskDevice>(&faulty_, [](DiskDevice*) {}),
                                       host_, options, drive));
    return viewMbr(context_, *drive);
  }
  std::vector<u8> mbr() { return disk_.sector(0); }
  void expectDone() { ui_.expectMessage(kDone); }
  void expectDropQuestion(MessageResult answer) { ui_.expectMessage("not on the disk", answer); }
  void expectApplyQuestion(MessageResult answer) { ui_.expectMessage(disk_.displayName(), answer); }
  void expectChoice(const std::string& row) {
    ui_.expect<PartitionChoiceModel>([row](PartitionChoiceModel& choice) {
      ASSERT_EQ(1U, choice.rows.size()) << "what is in another slot is not offered";
      EXPECT_TRUE(contains(choice.rows[0].name, row));
      choice.ok();
    });
  }
  // Every button but Apply and Cancel.
  void editEverything(MbrViewModel& model) {
    model.select(0);
    model.press(MbrAction::setActive);
    EXPECT_TRUE(model.rows()[0].isActive);
    EXPECT_FALSE(model.rows()[2].isActive);
    model.press(MbrAction::moveUp);
    EXPECT_EQ(0U, model.selected());
    model.press(MbrAction::moveDown);
    EXPECT_EQ(1U, model.selected()) << "the selection follows";
    model.press(MbrAction::remove);
    expectChoice("MBR 0");
    model.press(MbrAction::insert);
    EXPECT_EQ(model.rows()[1].name, "MBR 0");
    for (const MbrAction action : {MbrAction::standardCode, MbrAction::newerCode,
                                   MbrAction::clearSignature, MbrAction::fillEndChs}) {
      expectDone();
      model.press(action);
    }
    ui_.expectInput("Edit Sig", "0x1234");
    expectDone();
    model.press(MbrAction::editSignature);
    EXPECT_EQ("0x00001234", model.signatureLabel());
  }

  MemoryDisk disk_ = diskFromScript(kSectors, kScript);
  FaultyDisk faulty_{disk_};
};

TEST_F(MbrViewTest, NothingIsWrittenBeforeApply) {
  const FlowResult cancelled = view([&](MbrViewModel& model) {
    editEverything(model);
    expectDropQuestion(MessageResult::no);
    model.press(MbrAction::cancel);
    EXPECT_TRUE(model.isOpen());
    expectDropQuestion(MessageResult::yes);
    model.press(MbrAction::cancel);
  });
  EXPECT_EQ(FlowEnd::cancelled, cancelled.end);
  EXPECT_EQ(0U, faulty_.writes());

  const FlowResult applied = view([&](MbrViewModel& model) {
    editEverything(model);
    expectApplyQuestion(MessageResult::no);
    model.press(MbrAction::apply);
    EXPECT_TRUE(model.isOpen());
    EXPECT_EQ(0U, faulty_.writes());
    expectApplyQuestion(MessageResult::yes);
    ui_.expectChoice("The old partition table is kept in", 0);
    model.press(MbrAction::apply);
    EXPECT_FALSE(model.isOpen());
  });
  EXPECT_EQ(FlowEnd::done, applied.end);
  EXPECT_EQ(1U, faulty_.writes());
  const SfdiskTable after = readTable(disk_);
  EXPECT_EQ("", after.problems);
  EXPECT_EQ(0x1234U, after.diskSignature);
  ASSERT_EQ(4U, after.rows.size());
  EXPECT_EQ(20480U, after.rows[0].start);
  EXPECT_EQ(2048U, after.rows[1].start);
}

TEST_F(MbrViewTest, SignaturesAreNumbersOfC) {
  static_cast<void>(view([&](MbrViewModel& model) {
    for (const auto& [answer, label] : {std::pair("", "0x00000000"), std::pair("010", "0x00000008"),
                                        std::pair("4294967295", "0xFFFFFFFF")}) {
      ui_.expectInput("Edit Sig", answer);
      expectDone();
      model.press(MbrAction::editSignature);
      EXPECT_EQ(label, model.signatureLabel());
    }
    for (const char* const wrong : {"twelve", "0x123456789"}) {
      ui_.expectInput("Edit Sig", wrong);
      ui_.expectMessage("It was not changed");
      model.press(MbrAction::editSignature);
    }
    ui_.expectInput("Edit Sig", std::nullopt);
    model.press(MbrAction::editSignature);
    EXPECT_EQ("0xFFFFFFFF", model.signatureLabel());
    expectDropQuestion(MessageResult::yes);
    model.cancel();
  }));
}

TEST_F(MbrViewTest, APlaceHolderGoesOnlyAfterYes) {
  editSector<MbrRecord>(disk_, 0, [](MbrRecord& mbr) { mbr.slots[3].type = types::kGptReserved; });
  static_cast<void>(view([&](MbrViewModel& model) {
    model.select(3);
    for (const MbrAction action : {MbrAction::insert, MbrAction::remove}) {
      ui_.expectMessage(kPlaceHolder, MessageResult::no);
      model.press(action);
      EXPECT_EQ(model.rows()[3].type, types::kGptReserved);
    }
    ui_.expectMessage(kPlaceHolder, MessageResult::yes);
    model.press(MbrAction::remove);
    EXPECT_EQ(model.rows()[3].type, types::kFree);
    expectDropQuestion(MessageResult::yes);
    model.cancel();
  }));
}

TEST_F(MbrViewTest, AFailedApplyKeepsTheCopyForAnotherTry) {
  const std::vector<u8> before = mbr();
  const FlowResult result = view([&](MbrViewModel& model) {
    model.select(0);
    model.press(MbrAction::remove);
    faulty_.failWrite(0);
    expectApplyQuestion(MessageResult::yes);
    ui_.expectMessage("The Write operation on mass storage device failed!");
    model.press(MbrAction::apply);
    EXPECT_TRUE(model.isOpen());
    EXPECT_EQ(before, mbr());
    EXPECT_EQ(model.rows()[0].type, types::kFree);
    expectApplyQuestion(MessageResult::yes);
    ui_.expectChoice("The old partition table is kept in", 0);
    model.press(MbrAction::apply);
    EXPECT_FALSE(model.isOpen());
  });
  EXPECT_TRUE(result.succeeded());
  EXPECT_EQ(2U, readTable(disk_).rows.front().number);
}

}  // namespace
}  // namespace tallowin
