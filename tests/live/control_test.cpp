// control_test.cpp - what may come over the control socket, and settings changed by name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/error.h"
#include "host/live/control_request.h"
#include "host/live/ctl.h"
#include "host/live/port_spec.h"
#include "host/live/set_value.h"

namespace vex::host::live {
namespace {

using ::testing::HasSubstr;

Request Parse(std::string_view line) {
  return ParseRequest({reinterpret_cast<const uint8_t*>(line.data()), line.size()});
}

TEST(ParseRequestTest, EveryCommandIsUnderstood) {
  EXPECT_EQ(std::get<ShowRequest>(Parse(R"({"command":"show","what":"ports"})")).what, "ports");
  const auto set = std::get<SetRequest>(Parse(R"({"command":"set","key":"degrade_rate","value":"9"})"));
  EXPECT_EQ(set.key + "=" + set.value, "degrade_rate=9");
  EXPECT_EQ(std::get<TraceRequest>(Parse(R"({"command":"trace","on":"p1"})")).on, "p1");
  EXPECT_EQ(std::get<TraceRequest>(Parse(R"({"command":"trace"})")).on, "");
  EXPECT_TRUE(std::holds_alternative<ReloadRequest>(Parse(R"({"command":"reload"})")));
  EXPECT_TRUE(std::holds_alternative<SaveRequest>(Parse(R"({"command":"save"})")));
}

TEST(ParseRequestTest, AnythingElseIsAnErrorThatSaysWhy) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "JSON object"},
      {"[1]", "JSON object"},
      {"{\"command\":\"show\"", "JSON object"},
      {std::string("{\"command\":\"sh\0ow\"}", 19), "JSON object"},
      {"{\"command\":\"\xFF\"}", "JSON object"},
      {R"({"command":7})", "must be text"},
      {R"({"command":"shwo"})", "nearest is \"show\""},
      {R"({"command":"show"})", "\"what\" is missing"},
      {R"({"command":"show","what":"secrets"})", "there is summary, ports"},
      {R"({"command":"save","file":"/etc/passwd"})", "has no \"file\""},
      {std::string(kMaxRequest, ' ') + R"({"command":"save"})", "at most"},
      {std::string(kMaxRequest, '['), "JSON object"},
  };
  for (const auto& [line, why] : cases) {
    const Request request = Parse(line);
    ASSERT_TRUE(std::holds_alternative<RequestError>(request)) << line;
    EXPECT_THAT(std::get<RequestError>(request).what, HasSubstr(why)) << line;
  }
}

Config TwoPorts() {
  Config config;
  AddPort(config, "p1");
  AddPort(config, "eth0.5:trusted,vlan=30,index=9");
  return config;
}

TEST(SetByNameTest, WhatTheFileSetsCanBeSet) {
  Config config = TwoPorts();
  SetByName(config, "snooping.interface.9.v6.rate", "20");
  SetByName(config, "switches.nd_snooping", "off");
  SetByName(config, "snooping.vlan.30.trusted", "[1, 9]");
  SetByName(config, "port.eth0.5.vlan", "31");
  SetByName(config, "port.p1.trusted", "true");
  SetByName(config, "live.bindings", "/tmp/b");
  SetByName(config, "live.threads", "3");
  EXPECT_EQ(config.module.interfaces[9].v6.rate, 20);
  EXPECT_EQ(config.module.switches & 1U << 13, 0u);
  EXPECT_EQ(config.module.vlans[30].trusted, (std::set<uint32_t>{1, 9}));
  EXPECT_EQ(config.ports[1].vlan, 31);
  EXPECT_EQ(config.module.interfaces[1].trusted, 1u) << "a trusted port is trusted in the module";
  EXPECT_EQ(config.live.bindings, "/tmp/b");
  EXPECT_EQ(config.live.threads, 3u);
  SetByName(config, "snooping.interface.9.trusted", "false");
  EXPECT_FALSE(config.ports[1].trusted) << "and the other way round";
}

TEST(SetByNameTest, ABadNameOrValueChangesNothingAndIsNamed) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"snooping.interface.9.v4.rat", "1", "nearest"},
      {"snooping.interface.0.v4.rate", "1", "port index"},
      {"snooping.interface.9.v4.rate", "65536", "0 to 65535"},
      {"snooping.vlan.30.trusted", "[1,,2]", "a list of numbers"},
      {"switches.v4_req", "maybe", "true or false"},
      {"port.p7.vlan", "1", "no port"},
      {"port.p1.index", "3", "a running port has"},
      {"port.p1.vlan", "4095", "0 to 4094"},
      {"live.treads", "2", "live.threads"},
      {"live.threads", "0", "1 to 64"},
  };
  for (const auto& [key, value, why] : cases) {
    Config config = TwoPorts();
    try {
      SetByName(config, key, value);
      ADD_FAILURE() << key << " = " << value << " was accepted";
    } catch (const InputError& error) {
      EXPECT_THAT(error.what(), HasSubstr(why)) << key;
    }
    EXPECT_EQ(config, TwoPorts()) << key;
  }
}

TEST(AddPortTest, OptionsAndFreeIndexes) {
  Config config = TwoPorts();
  AddPort(config, "p3:management,peer-link,cause=30");
  EXPECT_EQ(config.ports[2].index, 2u);
  EXPECT_TRUE(config.ports[2].management && config.ports[2].peer_link && config.ports[2].cause == 30);
  EXPECT_EQ(config.module.interfaces[9].trusted, 1u);
  AddPort(config, "p1:vlan=7");  // changes the port that is there
  EXPECT_EQ(config.ports.size(), 3u);
  EXPECT_EQ(config.ports[0].vlan, 7);
  for (const char* bad : {"", ":trusted", "p9:trust", "p9:vlan=4095", "p9:vlan", "p9:index=0"}) {
    EXPECT_THROW(AddPort(config, bad), InputError) << bad;
  }
}

TEST(TextOfTest, ObjectsAreListsAndArraysAreTables) {
  EXPECT_EQ(TextOf(Json::parse(R"({"frames":12,"identity_holds":true})")),
            "frames          12\nidentity holds  yes\n");
  const std::string table =
      TextOf(Json::parse(R"([{"port":"p1","frames":7},{"port":"uplink","frames":1234}])"));
  EXPECT_THAT(table, HasSubstr("p1           7\n"));
  EXPECT_THAT(table, HasSubstr("uplink    1234\n"));
  EXPECT_EQ(TextOf(Json::array()), "none\n");
}

}  // namespace
}  // namespace vex::host::live
