// The settings requests' tests: every version-1 reader answers "<its name>
// text" and the service knows the client, unless a test says otherwise.
#pragma once

#include <string>
#include <vector>

#include "channel/cmdal_CmdAPI.h"
#include "handler_fixture.h"

class SettingsRequests : public Handlers {
 protected:
  void SetUp() override {
    Handlers::SetUp();
    for (const CmdalCommand& command : kCmdalCommands) {
      if (command.reader) peer_.Script(command.name, TextAnswer(TextOf(command.name)));
    }
    peer_.Script(u"CMDHLV2_CHECK_CLIENT_EXIST", Exists(1));
  }

  static std::u16string TextOf(const std::u16string& command) { return command + u" text\r\n"; }
  static std::string NarrowTextOf(const std::u16string& command) { return plat::ToUtf8(TextOf(command)); }
  static peer::Reply Exists(int32_t value) {
    return MessageAnswer([value](peer::Builder& b) { b.I32(value); });
  }

  // A request with all four identity fields.
  static std::string Query(int requestId, const std::string& functionType) {
    return "requestid=" + std::to_string(requestId) + "&functiontype=" + functionType + "&uid=" + kUid +
           "&release=14.0";
  }

  // The event of the removal among those received; 0 when none came.
  static uint32_t RemovedEvent(const std::vector<peer::Received>& received) {
    const peer::Received* removal = Find(received, u"CMDHLV2_CLN_REMOVE_CONFIG_REC");
    if (removal == nullptr || removal->message.fields.empty()) return 0;
    return U32At(removal->message.fields[0], 0);
  }

  // The handler's own trace lines, in order.
  static std::vector<std::string> LinesOf(const TraceCapture& capture, const std::string& prefix) {
    std::vector<std::string> lines;
    for (const std::string& m : capture.Messages()) {
      if (m.rfind(prefix, 0) == 0) lines.push_back(m);
    }
    return lines;
  }
};
