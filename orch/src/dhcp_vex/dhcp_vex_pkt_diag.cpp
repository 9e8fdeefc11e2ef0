// dhcp_vex_pkt_diag.cpp - formats diagnostics and hands them to the framework's log services.
// In:  format and arguments, or a packet. Out: HostDiagPrintf, OrbLog, OrbIMDebugReport, IM agent messages.
// Any thread; the only state is the two switches, read once per output before any formatting.
#include "dhcp_vex_pkt_diag.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "dhcp_vex_bytes.h"
#include "dhcp_vex_shared_word.h"

using namespace dhcp_vex;

uint8_t g_dhcpVexDebugSwitch = 0;
uint32_t g_dhcpPktDump = 0;

namespace {

constexpr size_t kTextSize = 1024;
constexpr uint32_t kDebugReportId = 0xDBBBC27C;
constexpr uint32_t kDiagMsgKind = 9;
constexpr uint32_t kDiagMsgId = 0x0DBB1042;
constexpr uint32_t kDiagTextPara = 25;
constexpr char kDiagPrefix[] = "(vex), ";
constexpr const char* kDirections[] = {"Send", "Recieve"};  // indexed by the dump direction
constexpr size_t kDumpBytes = 128;
constexpr size_t kDumpBytesPerLine = 16;
constexpr size_t kHexChars = 3;  // a blank and two digits
constexpr size_t kDumpText = kDumpBytes * kHexChars + kDumpBytes / kDumpBytesPerLine + 1;
static_assert(kDumpText <= kTextSize);

// Writes the bytes into `text`, NUL-terminated. False when a byte could not be formatted.
bool HexText(Bytes bytes, char* text) {
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i % kDumpBytesPerLine == 0) *text++ = '\n';
    char hex[kHexChars + 1] = {};
    if (sprintf_s(hex, sizeof(hex), " %02X", bytes[i]) < 0) return false;
    text = std::copy_n(hex, kHexChars, text);
  }
  *text = '\0';
  return true;
}

bool AddText(void* msg, const char* text, size_t length) {
  return ORB_ImAgentAddPara(msg, kDiagTextPara, static_cast<uint32_t>(length), text) == 0;
}

}  // namespace

int32_t DHCPDiagPrintf(const char* format, ...) {
  char text[kTextSize] = {};
  va_list args;
  va_start(args, format);
  const int32_t ret = vsnprintf_truncated_s(text, sizeof(text), format, args);
  va_end(args);
  if (ret < 0) return ret;
  return HostDiagPrintf("%s", text);
}

void DhcpDiagDumpPacket(OrbMbuf* pkt, uint32_t offset, uint32_t direction) {
  if (direction >= std::size(kDirections) || Load(g_dhcpPktDump) == 0) return;
  const Bytes buffer = From(BufferBytes(pkt), offset);
  char text[kTextSize] = {};
  if (!HexText(buffer.first(std::min(buffer.size(), kDumpBytes)), text)) return;
  OrbLog(4, "DHCP %s packet:%s", kDirections[direction], text);
}

void DhcpVexDebugOut(uint32_t /*level*/, const char* format, ...) {
  if (Load(g_dhcpVexDebugSwitch) == 0) return;
  char text[kTextSize] = {};
  va_list args;
  va_start(args, format);
  const int32_t ret = vsprintf_s(text, sizeof(text), format, args);
  va_end(args);
  if (ret < 0) return;
  OrbIMDebugReport(kDebugReportId, kDebugReportId, "NULL", text);
}

void DhcpVexDiagLog(uint32_t /*level*/, const char* format, ...) {
  char text[kTextSize] = {};
  va_list args;
  va_start(args, format);
  const int32_t ret = vsprintf_s(text, sizeof(text), format, args);
  va_end(args);
  if (ret == -1) return;
  void* msg = ORB_ImAgentMsgCreate(kDiagMsgKind, kDiagMsgId);
  if (msg == nullptr) return;
  if (AddText(msg, kDiagPrefix, sizeof(kDiagPrefix) - 1) && AddText(msg, text, std::strlen(text))) {
    ORB_ImAgentSend(msg);
  } else {
    ORB_ImAgentMsgFree(msg);
  }
}

void DhcpVexSetDbgSwitch(uint32_t value) { Store(g_dhcpVexDebugSwitch, static_cast<uint8_t>(value)); }
