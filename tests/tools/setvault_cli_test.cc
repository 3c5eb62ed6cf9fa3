// The setvault tool, run as a process on a store in a temporary directory:
// one table of shell lines run in order on the same store, each with the exit
// status it must end with and a text its output (stdout and stderr) must
// contain.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "support/example_schemas.h"
#include "support/temp_dir.h"

namespace {

TEST(SetvaultCliTest, EveryCommandOnOneStore) {
  setvault_test::TempDir dir;
  dir.WriteFile("allow.json", R"(["korvo.system.*"])");
  dir.WriteFile("deep.json", std::string(200000, '[') + std::string(200000, ']'));
  const struct {
    std::string line;  // shell; `setvault` runs the tool on the test's store
    int status;
    std::string expected;  // a part of the output
  } steps[] = {
      // Reads never create a store; usage errors.
      {"setvault get $H; s=$?; test ! -e store.db && exit $s", 1,
       "no store at " + dir.File("store.db")},
      {"setvault sett korvo", 2, "unknown command 'sett'; did you mean: set"},
      {"setvault --compact schema lod x", 2,
       "unknown command 'schema lod'; did you mean: schema load"},
      {"setvault --version", 0, "setvault 0.1.0"},
      {"setvault get --help", 0, "Example:\n  setvault get korvo net vswitch vs0"},
      // Types.
      {"setvault schema load $EXAMPLES", 0, R"({"loaded":9,"dropped":[]})"},
      {"setvault schema list", 0, R"("key":"vswitch","version":"2.0","instanceIdProperty":"name")"},
      {"setvault schema show $H", 0, R"("vitalMembers":["/systemUuid","/installDate"])"},
      {"setvault schema show $V", 0, R"("instanceArrays":{"/portgroups":"name"})"},
      {"setvault schema show korvo net nothing", 3, "no type korvo net nothing is loaded"},
      {"setvault schema check $EXAMPLES", 0, R"(host.json","ok":true})"},
      // Objects.
      {R"(setvault set $H '{"hostname": "h1", "systemUuid": "u1"}')", 0,
       R"("revision":1,"creationTime":"20)"},
      {"setvault get $H --origin", 0,
       R"("data":{"systemUuid":"u1","hostname":"h1"},)"
       R"("origin":{"systemUuid":"vital","hostname":"user"}})"},
      {R"(setvault set $H --auto '{"timezone": "CET"}')", 0, R"("timezone":"CET")"},
      {"setvault get $H --effective --origin", 0,
       R"("powerPolicy":"balanced"},"origin":{"systemUuid":"vital","timezone":"auto",)"
       R"("hostname":"user","powerPolicy":"default"}})"},
      // Compact when piped: both times, in UTC, on one line.
      {R"(setvault get $H | grep -cE '(Time":"....-..-..T..:..:..Z".*){2}')", 0, "1"},
      {"script -qc '" SETVAULT_TOOL_PATH " get $H' /dev/null", 0,
       "{\r\n  \033[34m\"component\"\033[0m: \033[32m\"korvo\"\033[0m,"},
      {"script -qc '" SETVAULT_TOOL_PATH " get $H --compact' /dev/null", 0,
       "{\"component\":\"korvo\","},
      {"setvault unset $H hostname", 0, R"("data":{"systemUuid":"u1","timezone":"CET"})"},
      {"setvault unset $H hostname", 3, "hostname is not set"},
      {R"(setvault set $V vs0 '{"mtu": 9000}')", 0, R"("mtu":9000,"name":"vs0")"},
      {R"(setvault update $V --instance vs1 '{"mtu": 1500}')", 0, "created korvo net vswitch vs1"},
      {R"(setvault update $V vs2 '{"mtu": 1500}' --existing)", 3, "--existing refuses"},
      {R"(echo '{"vs3": {"mtu": 9000}}' | setvault set-instances $V -)", 0, R"({"written":1})"},
      {"setvault ids $V", 0, R"(["vs0","vs1","vs3"])"},
      {R"(setvault instances $V --filter '{"mtu": 9000}' | grep -c vs1)", 1, "0"},
      {"setvault revision $V vs0", 0, "1"},
      {"setvault revisions $V", 0, R"({"vs0":1,"vs1":1,"vs3":1})"},
      {"setvault set $V vs0 '{}' --if-revision 5", 1, "error 1105: Revision conflict"},
      {R"(setvault update $V vs0 '{"mtu": 9000}' --if-revision 1)", 0, R"("revision":2)"},
      {"setvault ls korvo net", 0, R"("key":"vswitch","instanceId":"vs3"})"},
      {"setvault get $V", 2, "add the instance id after the key"},
      {"setvault get $V vs9", 3, "nothing stored for korvo net vswitch vs9"},
      {"setvault get korvo net nothing", 3, "error 1037"},
      {"setvault delete $V vs3", 0, R"({"deleted":1})"},
      {"setvault delete-instances $V", 2, "needs either --filter JSON or --all"},
      {R"(setvault delete-instances $V --filter '{"mtu": 1}')", 3, "no stored instance"},
      {R"(setvault delete-instances $V --filter '{"mtu": 1500}')", 0, R"({"deleted":1})"},
      // Bad input: refused with findings, JSON errors with line and column.
      {R"(setvault set $V vs0 '{"mtu": 99999, "speed": 1}')", 4, "  /mtu: "},
      {R"(setvault validate $H '{"hostname": 42}')", 4, R"([{"field":"/hostname")"},
      {"setvault set $H '{\n  \"a\": }'", 2, "data: not JSON at line 2, column 8"},
      {"setvault instances $V --filter @deep.json", 2, "--filter: a JSON object"},
      {"setvault set $V vs0 @/dev/zero", 1, "larger than the limit of 16777216 bytes"},
      {R"(setvault set-instances $V '{"a\u0000b": {"mtu": 1500}}')", 1,
       "Instance id cannot contain a NUL byte"},
      // Documents.
      {"setvault export korvo.net.vswitch", 0,
       R"({"korvo":{"net":{"vswitch":[{"mtu":9000,"name":"vs0"}]}}})"},
      {"setvault export korvo.net", 2, "component.group.key"},
      {"setvault export > all.json && grep -c systemUuid all.json", 0, "1"},
      {R"(sed 's/"mtu":9000/"mtu":1500/' all.json > edited.json; setvault diff edited.json)", 0,
       R"("instanceId":"vs0","operation":"SET","drift":{"mtu":"SET"}})"},
      {R"(echo '{"korvo": {"net": {"vswitch": []}}}' | setvault import - --dry-run)", 0,
       R"("operation":"DELETE")"},
      {"setvault import edited.json && setvault get $V vs0", 0, R"("mtu":1500)"},
      {R"(echo '{"korvo": {"net": {"vswitch": [{"name": "x", "mtu": 1}]}}}' | setvault import -)",
       4, "/korvo/net/vswitch/0/mtu"},
      {"setvault validate --document edited.json", 0, "[]"},
      // Next boot, boot confirmation, host flags.
      {R"(setvault kernel-options update '{"logLevel": "debug"}')", 0, R"("logLevel":"debug")"},
      {"setvault get $O", 3, "nothing stored"},
      {"setvault boot-status $O && setvault get $O", 0, R"("data":{"logLevel":"debug"})"},
      {"setvault kernel-options get", 0, R"("logLevel":"debug")"},
      {R"(setvault kernel-options update '{"hugePages": 4}' > /dev/null && setvault boot-status )"
       R"($O --partial '{"hugePages": 4}' && setvault get $O)",
       0, R"("hugePages":4)"},
      {R"(setvault boot-status $O --partial '{"hugePages": 8}')", 1, "desired config is empty"},
      {R"(setvault next-boot set $C '{"reservedCores": 2}')", 0, R"("reservedCores":2)"},
      {"setvault next-boot get $C", 0, R"("reservedCores":2)"},
      {"setvault next-boot reset $C; setvault next-boot get $C", 3, "nothing staged"},
      {"setvault next-boot instances korvo hvcore pciPassthrough", 0, "[]"},
      {"setvault next-boot delete $V vs0", 1, "@rebootRequiredSetvault"},
      {"setvault kv get NOTIFY_NEXD", 3, "NOTIFY_NEXD is not set"},
      {"setvault kv set NOTIFY_NEXD true && setvault kv get NOTIFY_NEXD", 0, "true"},
      // A write waits for another process's lock, then gives up.
      {"{ echo \"BEGIN EXCLUSIVE; CREATE TABLE IF NOT EXISTS probe(a); SELECT 'held';\"; "
       "sleep 20; } | sqlite3 store.db > held.txt & for i in $(seq 200); do grep -q held held.txt "
       "&& break; sleep 0.05; done; setvault set $H '{}'; s=$?; kill $!; exit $s",
       5, "another process holds it; gave up after waiting"},
      // A notification received by watch.
      {"setvault watch --count 1 --timeout 20 > watch.out & for i in $(seq 200); do [ -S "
       "trsLocalSocketNexdNotifyMirk ] && break; sleep 0.05; done; setvault set $H "
       R"('{"hostname": "h2"}' > /dev/null; wait $!; s=$?; cat watch.out; exit $s)",
       0, R"("identifiers":["korvo.system.host"],"pid":)"},
      {"setvault watch --count 1 --timeout 0.2", 3, "listening on " + dir.path()},
      // Loading definitions keeps the other types unless --replace-all.
      {"mkdir -p one && cp $EXAMPLES/dns.json one/ && setvault schema load one", 0,
       R"({"loaded":1,"dropped":[]})"},
      {"setvault schema load one --replace-all", 1, "korvo net vswitch (1 stored)"},
      {"setvault schema list | grep -c vswitch", 0, "1"},
      {"setvault schema load one --replace-all --force", 0,
       R"("dropped":["korvo hvcore cpuScheduler")"},
      {"echo '{\"component\":\"a\"}' > one/bad.json; setvault schema check one", 4,
       R"("file":"one/bad.json","ok":false,"faults":[)"},
      {"mkdir d && mv deep.json d/ && setvault schema load d", 1, "nested deeper than 512 levels"},
  };
  // Each step's shell line runs in the test's directory; its output is stdout and stderr.
  for (const auto& step : steps) {
    const std::string script = dir.WriteFile(
        "step.sh", "cd " + dir.path() + "\nexport SETVAULT_STORE=" + dir.File("store.db") +
                       " SETVAULT_SCHEMA_DB=" + dir.File("schema.db") + " SETVAULT_NOTIFY_DIR=" +
                       dir.path() + " SETVAULT_NOTIFY_ALLOWLIST=" + dir.File("allow.json") +
                       " EXAMPLES=" + setvault_test::ExampleSchemaDir() +
                       " H='korvo system host' V='korvo net vswitch' O='korvo hvcore options'"
                       " C='korvo hvcore cpuScheduler'" +
                       "\nsetvault() { " SETVAULT_TOOL_PATH " \"$@\"; }\n" + step.line + "\n");
    FILE* pipe = popen(("bash " + script + " 2>&1").c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string output;
    for (int c; (c = fgetc(pipe)) != EOF;) output += static_cast<char>(c);
    const int status = pclose(pipe);
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, step.status) << step.line << output;
    EXPECT_NE(output.find(step.expected), std::string::npos) << step.line << "\n" << output;
  }
}

}  // namespace
