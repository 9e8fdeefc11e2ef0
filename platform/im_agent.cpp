// im_agent.cpp - messages of the IM agent: created, filled, then sent or freed.
// In:  the four ORB_ImAgent imports. Out: a record of LogOutput::kImAgent per message sent; findings for
// messages that are used after their end. A send takes the message over, whatever it answers.
#include <mutex>
#include <set>
#include <string>

#include "dhcp_vex_platform.h"
#include "platform/faults.h"
#include "platform/findings.h"
#include "platform/logs.h"

namespace vex::platform {
namespace {

struct ImMessage {
  uint32_t kind;
  uint32_t id;
  uint32_t parameters = 0;
  std::string text;
};

std::mutex g_mutex;  // guards the set and the messages in it

std::set<ImMessage*>& Live() {
  static auto* const live = new std::set<ImMessage*>;
  return *live;
}

// Takes the message out of the set; null, and a finding, when it is not in it.
ImMessage* TakeOver(void* msg, const char* what) {
  const std::lock_guard lock(g_mutex);
  auto* const message = static_cast<ImMessage*>(msg);
  if (Live().erase(message) != 0) return message;
  ReportFinding(std::string(what) + " of an IM message that does not exist (sent or freed before?)");
  return nullptr;
}

}  // namespace

size_t LiveImMessages() {
  const std::lock_guard lock(g_mutex);
  return Live().size();
}

void ResetImMessages() {
  const std::lock_guard lock(g_mutex);
  for (const ImMessage* message : Live()) delete message;
  Live().clear();
}

}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

void* ORB_ImAgentMsgCreate(uint32_t kind, uint32_t id) {
  if (Watch(Import::ORB_ImAgentMsgCreate, kind, id)) return nullptr;
  const std::lock_guard lock(g_mutex);
  return *Live().insert(new ImMessage{.kind = kind, .id = id, .text = {}}).first;
}

uint32_t ORB_ImAgentAddPara(void* msg, uint32_t type, uint32_t length, const void* bytes) {
  if (const Outcome fault = Watch(Import::ORB_ImAgentAddPara, msg, type, length, bytes)) return fault.Code();
  const std::lock_guard lock(g_mutex);
  auto* const message = static_cast<ImMessage*>(msg);
  if (!Live().contains(message)) {
    ReportFinding("parameter for an IM message that does not exist");
    return 1;
  }
  if (bytes == nullptr) return 1;
  message->text.append(static_cast<const char*>(bytes), length);
  ++message->parameters;
  return 0;
}

uint32_t ORB_ImAgentSend(void* msg) {
  const Outcome fault = Watch(Import::ORB_ImAgentSend, msg);
  const ImMessage* const message = TakeOver(msg, "send");
  if (message == nullptr) return 1;
  if (!fault) {
    Logs().Write({.output = LogOutput::kImAgent,
                  .level = message->kind,
                  .text = message->text,
                  .id1 = message->id,
                  .id2 = message->parameters});
  }
  delete message;
  return fault ? fault.Code() : 0;
}

void ORB_ImAgentMsgFree(void* msg) {
  Watch(Import::ORB_ImAgentMsgFree, msg);
  delete TakeOver(msg, "free");
}

}  // extern "C"
