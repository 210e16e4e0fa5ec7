#include <gtest/gtest.h>

#include "ops/delete_model.h"
#include "ops/format_model.h"
#include "ops/format_summary_model.h"

namespace tallowin {
namespace {

TEST(DeleteModel, AnEntryInErrorKeepsItsSectors) {
  DeleteFacts facts;
  facts.inError = true;
  DeleteModel model(facts);
  model.clearBootSector = model.wipePartition = true;
  model.ok();
  EXPECT_TRUE(model.confirmed);
  EXPECT_FALSE(model.clearBootSector || model.wipePartition);
  EXPECT_FALSE(model.wipePartitionControl.whyDisabled.empty());
  EXPECT_FALSE(model.clearBootSectorControl.whyDisabled.empty());
}

TEST(DeleteModel, SecureWipeSaysWhyItCannotBeTicked) {
  DeleteModel model(DeleteFacts{});
  model.wipePartition = model.secureWipe = true;
  model.pass();
  EXPECT_TRUE(model.wipePartition);
  EXPECT_FALSE(model.secureWipe || model.secureWipeControl.enabled);
  EXPECT_FALSE(model.secureWipeControl.whyDisabled.empty());
  EXPECT_FALSE(model.warningLine.shown);
  model.cancel();
  EXPECT_FALSE(model.confirmed);
}

TEST(FormatModel, ClusterChoicesAreBytes) {
  FormatModel model(true);
  const u32 expected[] = {0, 512, 1024, 2048, 4096, 8192, 16384, 32768, 65536};
  for (std::size_t i = 0; i < FormatModel::kClusterChoices.size(); ++i) {
    model.clusterChoice = i;
    EXPECT_EQ(expected[i], model.clusterBytes());
  }
  EXPECT_TRUE(model.setClusterBytes(4096));
  EXPECT_EQ(4U, model.clusterChoice);
  EXPECT_FALSE(model.setClusterBytes(131072));
  EXPECT_EQ(4U, model.clusterChoice);
}

TEST(FormatModel, OnlyFatHasTheWarningAndTheAlignment) {
  for (const bool isFat : {true, false}) {
    FormatModel model(isFat);
    model.alignForNtfs = true;
    model.pass();
    EXPECT_FALSE(model.winNtOnlyLabel.shown);
    ASSERT_TRUE(model.setClusterBytes(65536));
    model.pass();
    EXPECT_EQ(isFat, model.winNtOnlyLabel.shown);
    EXPECT_EQ(isFat, model.alignForNtfsControl.shown);
    EXPECT_EQ(isFat, model.alignForNtfs);
  }
}

TEST(FormatSummaryModel, TellsWhatWasMade) {
  FormatSummary summary;
  summary.name = "DATA";
  summary.typeName = "FAT-32";
  summary.fileSystemText = "FAT32   ";
  summary.sizeText = "500 MiB";
  summary.clusterBytes = 4096;
  summary.totalClusters = 127749;
  summary.isFat32 = true;
  summary.badClusters = 3;
  summary.scanSkipped = true;
  EXPECT_EQ((std::vector<std::string>{"Name: DATA", "Type: FAT-32/FAT32   ", "Size: 500 MiB",
                                      "Cluster size: 4096 byte(s)", "Total clusters: 127749",
                                      "Bad clusters: 3 (skipped)", "Free clusters: 127745"}),
            FormatSummaryModel(summary).lines);

  summary.isFat = false;
  summary.typeName = "NTFS/exFAT/HPFS/+";
  summary.fileSystemText = "NTFS";
  const FormatSummaryModel ntfs(summary);
  EXPECT_EQ("Type: NTFS", ntfs.lines[1]);
  EXPECT_EQ(5U, ntfs.lines.size());
}

}  // namespace
}  // namespace tallowin
