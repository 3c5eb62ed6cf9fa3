// Processes killed with SIGKILL at random points while they write (Set and SetInstances in
// transactions, and definition loads) leave a sound store: integrity_check is "ok", every
// acknowledged commit is there, and each transaction is there whole or not at all.
//
// SETVAULT_CRASH_ROUNDS sets the number of rounds (30 by default).
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <random>
#include <regex>
#include <vector>

#include "reliability/store_processes.h"
#include "setvault/schema_setup.h"
#include "support/example_schemas.h"

namespace setvault_test {
namespace {

// The writer: transaction `n` of round `round` stamps "<round>-<n>" on the host and on three
// datastore instances, then acknowledges n on `ack` once CommitTransaction has returned. Every
// tenth transaction is a definition load instead.
int Writer(int round, int ack) {
  auto store = Setvault::GetStore("");
  for (int n = 1;; ++n) {
    if (n % 10 == 0) {
      KorvoSetvault::LoadSchemaDefinitions(ExampleSchemaDir());
      continue;
    }
    const std::string stamp = std::to_string(round) + "-" + std::to_string(n);
    store->BeginTransaction();
    store->Set(Object(kHost, "{\"hostname\":\"" + stamp + "\"}"), kExternal);
    const auto datastore = [&](const std::string& label) {
      return Object(Datastore(label), "{\"label\":\"" + label + "\",\"device\":\"" + stamp + "\"}");
    };
    store->SetInstances({datastore("d1"), datastore("d2"), datastore("d3")}, kExternal);
    store->CommitTransaction();
    if (write(ack, &n, sizeof n) != sizeof n) return 3;
  }
}

// Every stamp the store holds: the host's first, then the datastores'.
std::vector<std::string> Stamps() {
  const std::regex stamp("\"(?:hostname|device)\":\"([0-9]+-[0-9]+)\"");
  auto store = Setvault::GetStore("");
  std::vector<std::string> stamps;
  for (const SetvaultObjectId& id : {kHost, Datastore("d1"), Datastore("d2"), Datastore("d3")}) {
    auto object = store->Get(id);
    std::smatch match;
    const std::string data = object ? object->GetData() : "";
    stamps.push_back(std::regex_search(data, match, stamp) ? match[1].str() : "none");
  }
  return stamps;
}

TEST(CrashTest, KilledWritersLoseNothingAcknowledgedAndNothingHalfDone) {
  const char* env = std::getenv("SETVAULT_CRASH_ROUNDS");
  const int rounds = env != nullptr ? std::atoi(env) : 30;
  ExampleSchemas schemas;
  const std::string store_path = schemas.dir().File("crash.db");
  const std::string schema_path = schemas.dir().File("schema.db");
  KorvoSetvault::SetStorePath(store_path);
  std::mt19937 random(std::random_device{}());
  int acknowledged_total = 0;
  std::string previous = "none";
  for (int round = 1; round <= rounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Pipe ack;
    const pid_t writer = Spawn([&] {
      ack.Close(0);
      return Writer(round, ack.out());
    });
    ack.Close(1);
    usleep(std::uniform_int_distribution<int>(5000, 80000)(random));
    kill(writer, SIGKILL);
    EXPECT_EQ(Wait(writer), 128 + SIGKILL) << "the writer ended before it was killed";
    int last = 0, n = 0;
    while (read(ack.in(), &n, sizeof n) == sizeof n) last = n;
    acknowledged_total += last;
    if (access(store_path.c_str(), F_OK) != 0) {  // killed before its first commit
      EXPECT_EQ(last, 0);
      continue;
    }
    ASSERT_EQ(QueryFile(store_path, "PRAGMA integrity_check"), "ok");
    ASSERT_EQ(QueryFile(schema_path, "PRAGMA integrity_check"), "ok");
    EXPECT_EQ(QueryFile(schema_path, "SELECT COUNT(*) FROM SmartnicSchema"), "9");
    const std::vector<std::string> stamps = Stamps();
    for (const std::string& stamp : stamps) EXPECT_EQ(stamp, stamps[0]) << "a half transaction";
    // The commit after the last acknowledgement may have landed before the kill.
    const auto stamp_of = [&](int k) { return std::to_string(round) + "-" + std::to_string(k); };
    const std::string acknowledged = last == 0 ? previous : stamp_of(last);
    const std::string next = stamp_of(last + 1 + (last % 10 == 9));
    EXPECT_TRUE(stamps[0] == acknowledged || stamps[0] == next)
        << stamps[0] << " after acknowledging " << acknowledged;
    previous = stamps[0];
  }
  std::printf("%d rounds, %d acknowledged commits, all present\n", rounds, acknowledged_total);
}

}  // namespace
}  // namespace setvault_test
