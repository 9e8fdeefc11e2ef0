// bindings_test.cpp - the announcement's record, the table built from it, and the file.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "service/atomic_file.h"
#include "service/binding_store.h"
#include "service/bindings.h"
#include "tests/service/messages.h"

namespace vex::service_test {
namespace {

using namespace service;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

Binding V4(uint8_t host, uint64_t end = 5000, uint8_t client = 1) {
  return {BindingKind::kDhcp4, IpAddress::V4(0x0A000000u + host), 32, 30, 4, Mac(client), {}, end};
}
Binding V6(BindingKind kind, std::string_view address, uint8_t length) {
  return {kind, Ip(address), length, 0, 70000, Mac(9), Buffer(kMaxDuid, 0xAB), kNoLeaseEnd};
}
std::vector<Binding> Several() {
  return {V4(1), V4(2), V6(BindingKind::kNonTemporary, "2001:db8::1", 128),
          V6(BindingKind::kTemporary, "2001:db8::2", 128), V6(BindingKind::kPrefix, "2001:db8:1::", 48)};
}

TEST(BindingMessageRecord, CarriesEveryFieldAndRefusesWhatIsNone) {
  for (const Binding& binding : Several()) {
    const BindingMessage message = Encode({BindingChange::kRenewed, binding, 123456789});
    const Bytes bytes(reinterpret_cast<const uint8_t*>(&message), sizeof(message));
    const auto event = DecodeBinding(bytes);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->binding, binding);
    EXPECT_EQ(event->change, BindingChange::kRenewed);
    EXPECT_EQ(event->time_ns, 123456789);
    for (size_t length = 0; length < bytes.size(); ++length) {
      const std::unique_ptr<uint8_t[]> block(new uint8_t[length]);
      std::copy_n(bytes.begin(), length, block.get());
      EXPECT_FALSE(DecodeBinding({block.get(), length})) << length;
    }
    for (const size_t at :
         {0u, 4u, 6u, 7u, 14u, 15u}) {  // magic, length, change, kind, prefix length, DUID length
      Buffer spoilt(bytes.begin(), bytes.end());
      spoilt[at] = 0xFF;
      EXPECT_FALSE(DecodeBinding(spoilt)) << at;
    }
  }
}

TEST(BindingTable, FollowsTheAnnouncements) {
  BindingTable table(2);
  std::vector<BindingChange> observed;
  table.SetObserver([&observed](const BindingEvent& event) { observed.push_back(event.change); });
  const auto apply = [&table](BindingChange change, const Binding& binding) {
    table.Apply({change, binding, 0});
  };
  apply(BindingChange::kMade, V4(1));
  apply(BindingChange::kRenewed, V4(1, 6000));
  apply(BindingChange::kRestored, V4(2));
  apply(BindingChange::kMade, V4(3));  // full
  EXPECT_THAT(table.Snapshot(), ElementsAre(V4(1, 6000), V4(2)));
  apply(BindingChange::kExpired, V4(1, 6000, 7));  // another client's
  apply(BindingChange::kReleased, V4(9));          // nobody's
  EXPECT_EQ(table.size(), 2u);
  apply(BindingChange::kMade, V4(2, 7000, 7));  // another client has the address now
  apply(BindingChange::kExpired, V4(2));        // the former one's end comes late
  EXPECT_THAT(table.Snapshot(), ElementsAre(V4(1, 6000), V4(2, 7000, 7)));
  apply(BindingChange::kReleased, V4(1));
  EXPECT_THAT(table.Snapshot(), ElementsAre(V4(2, 7000, 7)));
  const BindingTableStats stats = table.Stats();
  EXPECT_EQ(stats.made, 3u);
  EXPECT_EQ(stats.renewed, 1u);
  EXPECT_EQ(stats.refused, 1u);
  EXPECT_EQ(stats.unmatched, 3u);
  EXPECT_EQ(stats.removed, 1u);
  EXPECT_EQ(table.Version(), 5u);
  EXPECT_EQ(observed.size(), 5u) << "only what changed the table";
}

TEST(BindingTable, ExpiresByTheGivenTime) {
  BindingTable table(10);
  for (const Binding& binding : {V4(1, 100), V4(2, 200), V4(3, kNoLeaseEnd)})
    table.Apply({BindingChange::kMade, binding, 0});
  constexpr int64_t kSecond = 1'000'000'000;
  EXPECT_EQ(table.Expire(100 * kSecond - 1), 0u);
  EXPECT_EQ(table.Expire(100 * kSecond), 1u);
  EXPECT_EQ(table.Expire(50 * kSecond), 0u);
  EXPECT_EQ(table.Expire(INT64_MAX), 1u);
  EXPECT_THAT(table.Snapshot(), ElementsAre(V4(3, kNoLeaseEnd)));
  EXPECT_EQ(table.Stats().expired, 2u);
}

class BindingFile : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/vex-bindings-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    directory_ = name;
    path_ = directory_ / "bindings";
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }
  void Write(std::string_view text) const { std::ofstream(path_, std::ios::binary) << text; }
  std::string Read() const {
    std::ostringstream text;
    text << std::ifstream(path_, std::ios::binary).rdbuf();
    return text.str();
  }
  std::filesystem::path directory_;
  std::string path_;
};

TEST_F(BindingFile, GivesBackWhatWasSaved) {
  EXPECT_TRUE(LoadBindings(path_, 100).missing);
  EXPECT_EQ(SaveBindings(path_, Several()), "");
  const LoadedBindings loaded = LoadBindings(path_, 100);
  EXPECT_THAT(loaded.bindings, ElementsAreArray(Several()));
  EXPECT_THAT(loaded.problems, IsEmpty());
  EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0600));
  EXPECT_EQ(SaveBindings(path_, {}), "");
  EXPECT_THAT(LoadBindings(path_, 100).bindings, IsEmpty());
  EXPECT_THAT(LoadBindings(path_, 100).problems, IsEmpty());
  EXPECT_THAT(SaveBindings(directory_ / "none" / "bindings", {}), HasSubstr("No such file"));
}

// Stops for good at a chosen moment: a call that fails, or after some bytes of the content.
class Dying : public FileOps {
 public:
  explicit Dying(size_t moments) : left_(moments) {}
  int Open(const char* path, int flags, unsigned mode) override {
    return Live() ? FileOps::Open(path, flags, mode) : -1;
  }
  long Write(int fd, Bytes bytes) override { return Live() ? FileOps::Write(fd, bytes.first(1)) : -1; }
  int Sync(int fd) override { return Live() ? FileOps::Sync(fd) : -1; }
  int Close(int fd) override { return FileOps::Close(fd); }
  int Rename(const char* from, const char* to) override { return Live() ? FileOps::Rename(from, to) : -1; }
  bool dead() const { return dead_; }

 private:
  bool Live() {
    if (left_ == 0) dead_ = true;
    if (left_ > 0) --left_;
    return !dead_;
  }
  size_t left_;
  bool dead_ = false;
};

TEST_F(BindingFile, AnEndAtAnyMomentLeavesTheOldOrTheNewFile) {
  const std::vector<Binding> before = {V4(1)}, after = {V4(2), V4(3)};
  size_t old_ones = 0, new_ones = 0;
  for (size_t moment = 0;; ++moment) {
    ASSERT_EQ(SaveBindings(path_, before), "");
    Dying ops(moment);
    const std::string error = SaveBindings(path_, after, ops);
    EXPECT_EQ(error.empty(), !ops.dead()) << moment;
    const LoadedBindings loaded = LoadBindings(path_, 100);
    ASSERT_THAT(loaded.problems, IsEmpty()) << moment;
    ASSERT_TRUE(loaded.bindings == before || loaded.bindings == after) << moment;
    ++(loaded.bindings == before ? old_ones : new_ones);
    if (!ops.dead()) break;
  }
  EXPECT_GT(old_ones, FormatBindings(after).size()) << "every byte was a moment";
  EXPECT_EQ(new_ones, 3u) << "after the rename: directory not opened, not synchronised, done";
}

TEST_F(BindingFile, ADamagedLineIsNamedAndTheRestKept) {
  const std::string text = FormatBindings(Several());
  const size_t second = text.find('\n') + 1, third = text.find('\n', second) + 1;
  std::string flipped = text;
  flipped[second + 40] = static_cast<char>(flipped[second + 40] ^ 1);
  std::string duplicated = text;
  duplicated.insert(third, text.substr(second, third - second).replace(0, 8, "00000000"));
  struct {
    const char* what;
    std::string text;
    size_t kept;
    const char* problem;
  } const kCases[] = {
      {"flipped bit", flipped, 4, "bindings:2: the checksum is wrong"},
      {"foreign line", duplicated, 5, "bindings:3: the checksum is wrong"},
      {"lost line", text.substr(0, second) + text.substr(third), 4, "ends after 4 of 5"},
      {"lost head", text.substr(second), 4, "bindings:1: this is no bindings file"},
      {"empty", "", 0, "bindings:0: the file is empty"},
      {"another program's", "[Unit]\nDescription=x\n", 0, "bindings:1: the line has no checksum"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    Write(c.text);
    const LoadedBindings loaded = LoadBindings(path_, 100);
    EXPECT_EQ(loaded.bindings.size(), std::string(c.what) == "lost head" ? 0u : c.kept);
    ASSERT_FALSE(loaded.problems.empty());
    EXPECT_THAT(loaded.problems[0], HasSubstr(c.problem));
  }
}

// Cut anywhere, flipped anywhere: never a crash, never a binding that was not saved, and the damage is
// reported.
TEST_F(BindingFile, NoDamageInventsABinding) {
  const std::vector<Binding> saved = Several();
  const std::string text = FormatBindings(saved);
  const auto check = [&saved](const std::string& damaged, size_t at) {
    const LoadedBindings loaded = ParseBindings(damaged, "f", 100);
    EXPECT_FALSE(loaded.problems.empty()) << at;
    for (const Binding& binding : loaded.bindings)
      EXPECT_NE(std::find(saved.begin(), saved.end(), binding), saved.end()) << at;
  };
  for (size_t at = 0; at < text.size(); ++at) {
    check(text.substr(0, at), at);
    std::string flipped = text;
    flipped[at] = static_cast<char>(flipped[at] ^ 0x04);
    check(flipped, at);
  }
}

// The checksums are right: it is the member that is refused.
TEST_F(BindingFile, AMemberThatFitsNoBindingIsNamed) {
  constexpr std::pair<const char*, const char*> kCases[] = {
      {R"(87842dc9 {"address":"192.0.2.7\u0000","end":1800000000,"kind":"v4","mac":"02:00:00:00:00:0b","port":2,"prefix":32,"vlan":30})",
       "\"address\" is not an address of its kind"},
      {R"(249b47c4 {"address":"2001:db8::7","end":1800000000,"kind":"v4","mac":"02:00:00:00:00:0b","port":2,"prefix":32,"vlan":30})",
       "\"address\" is not an address of its kind"},
      {R"(4d3806e9 {"address":"192.0.2.7","end":1800000000,"kind":"v4","mac":"02:00:00:00:00:0b","port":2,"prefix":32,"vlan":4096})",
       "\"vlan\" is no"},
      {R"(88c04c21 {"address":"192.0.2.7","end":1800000000,"kind":"v4","mac":"02:00:00:00:00:0b","port":2,"prefix":33,"vlan":30})",
       "\"prefix\" is no"},
  };
  const std::string good = FormatBindings(std::vector{V4(1)});
  for (const auto& [line, problem] : kCases) {
    const LoadedBindings loaded = ParseBindings(good + line + "\n", "f", 100);
    EXPECT_EQ(loaded.bindings, std::vector{V4(1)});
    EXPECT_THAT(loaded.problems, ElementsAre(HasSubstr(problem))) << line;
  }
}

TEST_F(BindingFile, ReadsNoMoreThanItMayKeepAndNamesAFewProblemsOnly) {
  const std::vector<Binding> many(50, V4(1));
  EXPECT_EQ(ParseBindings(FormatBindings(many), "f", 10).bindings.size(), 10u);
  EXPECT_THAT(ParseBindings(FormatBindings(many), "f", 10).problems,
              ElementsAre(HasSubstr("more than 10 bindings")));
  std::string garbage;
  for (int i = 0; i < 100; ++i) garbage += "x\n";
  const LoadedBindings loaded = ParseBindings(garbage, "f", 1000);
  EXPECT_EQ(loaded.problems.size(), LoadedBindings::kMaxProblems + 1);
  EXPECT_THAT(loaded.problems.back(), HasSubstr("80 more problems"));
}

}  // namespace
}  // namespace vex::service_test
