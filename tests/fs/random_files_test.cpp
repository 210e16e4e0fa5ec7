// Random changes against a plain model in memory, judged by others after each batch.
//
// TALLOWIN_FILE_OPERATIONS is how many there are for each kind (default 200).
#include <cstdlib>
#include <random>

#include "base/text.h"
#include "fs/fs_bench.h"

namespace tallowin {
namespace {

constexpr u64 kClock = 1700000000;  // what the driver takes for now; FAT keeps even seconds
constexpr u32 kBatch = 100;
// So that a long run stays as it began.
constexpr std::size_t kMostEntries = 400;
constexpr std::size_t kMostBytes = 24 * kMiB;

struct Node {
  std::string name;
  bool isDirectory = false;
  std::string content;
  u32 attributes = 0;
  FileTime modified = fileTimeOfUnixSeconds(kClock);
  std::map<std::u16string, Node> entries;  // by their name in capitals
  Node* parent = nullptr;
};

class RandomFilesTest : public testing::TestWithParam<FsSample> {
 protected:
  void SetUp() override {
    if (!hasJudges()) GTEST_SKIP() << "needs dosfstools, mtools";
    root_.isDirectory = true;
    reopen();
  }

  void reopen() {
    held_ = {};
    heldNode_ = nullptr;
    ASSERT_EQ(Error::none, openFiles(disk_, GetParam(), files_,
                                     {.writable = true, .clock = [] { return kClock; }}));
  }

  u32 random(u32 below) { return static_cast<u32>(random_() % below); }
  bool oneIn(u32 count) { return random(count) == 0; }

  // Of all lengths, cases and scripts; few enough that they meet.
  std::string randomName() {
    static constexpr const char* kWords[] = {
        "a",   "B",   "readme", "ReadMe", "README", "Long Name", "über", "ÜBER", "日本",
        "Жук", "x+y", ".dot",   "data",   "Data",   "e",         "0",    "ÿ",    "ο"};
    std::string name = kWords[random(std::size(kWords))];
    if (oneIn(3)) name += std::to_string(random(40));
    if (oneIn(8)) name += std::string(random(190), "abcé"[random(3)]);
    if (oneIn(2)) name += oneIn(2) ? ".txt" : oneIn(2) ? ".TXT" : ".longer";
    return name;
  }

  static std::u16string keyOf(const std::string& name) { return upperCase(*utf16Of(name)); }
  static std::string pathOf(const Node& node) {
    return node.parent == nullptr ? "" : pathOf(*node.parent) + "/" + node.name;
  }

  // Any of those that `wanted` takes; null when there is none.
  template <typename Wanted>
  Node* randomNode(Wanted wanted) {
    std::vector<Node*> nodes;
    const auto collect = [&](auto& self, Node& node) -> void {
      if (wanted(node)) nodes.push_back(&node);
      for (auto& [key, entry] : node.entries) self(self, entry);
    };
    collect(collect, root_);
    return nodes.empty() ? nullptr : nodes[random(static_cast<u32>(nodes.size()))];
  }
  Node* randomFile() {
    return randomNode([](const Node& node) { return !node.isDirectory; });
  }
  Node* randomDirectory() {
    return randomNode([](const Node& node) { return node.isDirectory; });
  }
  Node* randomEntry() {
    return randomNode([](const Node& node) { return node.parent != nullptr; });
  }
  static bool isIn(const Node& node, const Node& directory) {
    for (const Node* at = &node; at != nullptr; at = at->parent)
      if (at == &directory) return true;
    return false;
  }
  static bool isFull(const Failure& failure) {
    return failure == Error::volumeFull || failure == Error::directoryFull;
  }

  bool isLarge();
  void step();
  void create(bool isDirectory);
  void write(File& file, Node& node);
  void change();
  void remove();
  void move();
  void judge();
  void compare(const std::string& path, const Node& node);
  FileTree treeOfModel(const Node& node) const;

  std::mt19937 random_{GetParam().sectors + GetParam().clusterBytes};
  MemoryDisk disk_ = formatted(GetParam());
  std::unique_ptr<FileSystem> files_;
  Node root_;
  std::string label_;
  File held_;
  Node* heldNode_ = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Drivers, RandomFilesTest, testing::ValuesIn(kFsSamples),
                         [](const auto& sample) { return std::string(sample.param.name); });

void RandomFilesTest::create(bool isDirectory) {
  Node* const in = randomDirectory();
  const std::string name = randomName();
  const std::string path = pathOf(*in) + "/" + name;
  const bool isThere = in->entries.contains(keyOf(name));
  File file;
  const Failure failure =
      isDirectory
          ? files_->makeDirectory(path)
          : files_->open(path, {.access = FileAccess::write, .create = true, .exclusive = true},
                         file);
  if (isThere) {
    ASSERT_EQ(Error::alreadyExists, failure) << path;
  } else if (!isFull(failure)) {
    ASSERT_EQ(Error::none, failure) << path;
    Node& made = in->entries[keyOf(name)];
    made.name = name;
    made.isDirectory = isDirectory;
    made.attributes = isDirectory ? kFileDirectory : kFileArchive;
    made.parent = in;
    if (!isDirectory && oneIn(2)) write(file, made);
  }
}

void RandomFilesTest::write(File& file, Node& node) {
  const u32 cluster = GetParam().clusterBytes;
  const std::size_t at = oneIn(3) ? node.content.size() : random(3 * cluster);
  const std::string bytes =
      randomBytes(random(kAllOnes32), oneIn(20) ? 20 * cluster : 1 + random(2 * cluster));
  u64 done = 0;
  ASSERT_EQ(Error::none, file.seek(static_cast<i64>(at)));
  SpaceInfo space;
  ASSERT_EQ(Error::none, files_->space(space));
  const std::size_t newSize = std::max(node.content.size(), at + bytes.size());
  const u64 needed =
      (newSize + cluster - 1) / cluster - (node.content.size() + cluster - 1) / cluster;
  const Failure failure =
      file.write({reinterpret_cast<const u8*>(bytes.data()), bytes.size()}, done);
  node.modified = fileTimeOfUnixSeconds(kClock);
  node.attributes |= kFileArchive;
  if (needed > space.freeUnits) {
    ASSERT_EQ(Error::volumeFull, failure);
    ASSERT_EQ(0U, done);
    return;
  }
  ASSERT_EQ(Error::none, failure) << pathOf(node);
  ASSERT_EQ(bytes.size(), done);
  node.content.resize(newSize);
  node.content.replace(at, bytes.size(), bytes);
}

// Size, attributes, times or content of a file.
void RandomFilesTest::change() {
  Node* const node = randomFile();
  if (node == nullptr) return;
  File file;
  ASSERT_EQ(Error::none, files_->open(pathOf(*node), {.access = FileAccess::readWrite}, file));
  switch (random(4)) {
    case 0: {
      const std::size_t size = oneIn(2) ? random(4 * GetParam().clusterBytes)
                                        : random(static_cast<u32>(node->content.size()) + 1);
      if (size == node->content.size()) break;
      const Failure failure = file.setSize(size);
      if (!isFull(failure)) {
        ASSERT_EQ(Error::none, failure);
        node->content.resize(size);
        node->modified = fileTimeOfUnixSeconds(kClock);
        node->attributes |= kFileArchive;
      }
      break;
    }
    case 1:
      node->attributes = random(64) & kFileSettableAttributes;
      ASSERT_EQ(Error::none, file.setAttributes(node->attributes));
      break;
    case 2:
      node->modified = fileTimeOfUnixSeconds(1000000000 + random(500000000) * u64{2});
      ASSERT_EQ(Error::none, file.setTimes({.modified = node->modified}));
      break;
    default:
      write(file, *node);
  }
  ASSERT_EQ(Error::none, file.close());
}

void RandomFilesTest::remove() {
  Node* const node = randomEntry();
  if (node == nullptr) return;
  const std::string path = pathOf(*node);
  const Failure failure =
      node->isDirectory ? files_->removeDirectory(path) : files_->deleteFile(path);
  if (node == heldNode_) {
    ASSERT_EQ(Error::accessDenied, failure);
  } else if (!node->entries.empty()) {
    ASSERT_EQ(Error::directoryNotEmpty, failure);
  } else {
    ASSERT_EQ(Error::none, failure) << path;
    node->parent->entries.erase(keyOf(node->name));
  }
}

void RandomFilesTest::move() {
  Node* const node = randomEntry();
  if (node == nullptr) return;
  Node* const to = oneIn(2) ? node->parent : randomDirectory();
  const std::string name = oneIn(3) ? node->name : randomName();
  const auto there = to->entries.find(keyOf(name));
  const Failure failure = files_->move(pathOf(*node), pathOf(*to) + "/" + name);
  if (node == heldNode_) {
    ASSERT_EQ(Error::accessDenied, failure);
  } else if (there != to->entries.end() && &there->second != node) {
    ASSERT_EQ(Error::alreadyExists, failure);
  } else if (isIn(*to, *node)) {
    ASSERT_EQ(Error::invalidName, failure);
  } else if (!isFull(failure)) {
    ASSERT_EQ(Error::none, failure) << pathOf(*node) << " to " << name;
    auto taken = node->parent->entries.extract(keyOf(node->name));
    taken.key() = keyOf(name);
    taken.mapped().name = name;
    taken.mapped().parent = to;
    to->entries.insert(std::move(taken));
  }
}

bool RandomFilesTest::isLarge() {
  std::size_t entries = 0, bytes = 0;
  randomNode([&](const Node& node) {
    bytes += node.content.size();
    return ++entries != 0;
  });
  return entries > kMostEntries || bytes > kMostBytes;
}

void RandomFilesTest::step() {
  if (isLarge()) return remove();
  switch (random(12)) {
    case 0:
      return create(true);
    case 1:
    case 2:
    case 3:
      return create(false);
    case 4:
    case 5:
      return remove();
    case 6:
    case 7:
      return move();
    case 8:
      if (heldNode_ != nullptr) return write(held_, *heldNode_);
      heldNode_ = randomFile();
      if (heldNode_ == nullptr) return;
      ASSERT_EQ(Error::none,
                files_->open(pathOf(*heldNode_), {.access = FileAccess::write}, held_));
      return;
    case 9:
      if (!oneIn(4)) return change();
      heldNode_ = nullptr;
      ASSERT_EQ(Error::none, held_.close());
      return;
    case 10: {
      if (!oneIn(10)) return change();
      const std::string label = oneIn(4) ? "" : "LABEL " + std::to_string(random(100));
      const Failure failure = files_->setLabel(label);
      if (!failure) label_ = label;
      ASSERT_TRUE(!failure || isFull(failure));
      return;
    }
    default:
      return change();
  }
}

FileTree RandomFilesTest::treeOfModel(const Node& node) const {
  FileTree tree;
  for (const auto& [key, entry] : node.entries) {
    if (!entry.isDirectory) tree[pathOf(entry)] = entry.content;
    if (entry.isDirectory) tree[pathOf(entry) + "/"];
    tree.merge(treeOfModel(entry));
  }
  return tree;
}

void RandomFilesTest::compare(const std::string& path, const Node& node) {
  std::vector<FileInfo> entries;
  ASSERT_EQ(Error::none, files_->list(path + "/", entries)) << path;
  ASSERT_EQ(node.entries.size(), entries.size()) << path;
  for (const FileInfo& entry : entries) {
    const auto found = node.entries.find(keyOf(entry.name));
    ASSERT_NE(found, node.entries.end()) << path << "/" << entry.name;
    EXPECT_EQ(found->second.name, entry.name) << path;
    EXPECT_EQ(found->second.attributes, entry.attributes) << path << "/" << entry.name;
    EXPECT_EQ(found->second.modified, entry.times.modified) << path << "/" << entry.name;
    if (entry.isDirectory()) compare(path + "/" + entry.name, found->second);
  }
}

void RandomFilesTest::judge() {
  if (oneIn(2)) {
    ASSERT_EQ(Error::none, held_.close());
    ASSERT_EQ(Error::none, files_->sync());
    reopen();
  }
  ASSERT_EQ(Error::none, files_->sync());
  const FileTree expected = treeOfModel(root_);
  ASSERT_EQ(std::vector<std::string>(), differences(expected, treeOf(*files_)));
  compare("", root_);
  std::string label;
  ASSERT_EQ(Error::none, files_->label(label));
  EXPECT_EQ(label_, label);
  ASSERT_EQ("", checkerSays(disk_));
  ASSERT_EQ("", ownCheckSays(disk_));
  ASSERT_EQ(std::vector<std::string>(), differences(expected, treeByOthers(disk_)));
}

TEST_P(RandomFilesTest, AreWhatTheModelSays) {
  const char* wish = std::getenv("TALLOWIN_FILE_OPERATIONS");
  u64 operations = 200;
  ASSERT_TRUE(wish == nullptr || parseNumber(wish, operations));
  for (u64 done = 0; done < operations; ++done) {
    SCOPED_TRACE(testing::Message() << "operation " << done);
    ASSERT_NO_FATAL_FAILURE(step());
    if (done % kBatch == kBatch - 1) {
      ASSERT_NO_FATAL_FAILURE(judge());
      if (HasFailure()) return;
    }
  }
}

}  // namespace
}  // namespace tallowin
