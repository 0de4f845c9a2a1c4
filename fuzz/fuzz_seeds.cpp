#include "fuzz_seeds.h"

#include "channel/rec_Logs.h"
#include "channel/rec_Update.h"
#include "channel/rec_Upload.h"
#include "channel/rec_Vdi.h"
#include "channel/ser_MsgSerializer.h"
#include "support/crypt_StringEnvelope.h"

namespace {

std::vector<uint8_t> Wire(CMsgSerializer& message) {
  message.Finish();
  return std::vector<uint8_t>(message.Buffer().Data(), message.Buffer().Data() + message.GetSize());
}

}  // namespace

std::vector<std::vector<uint8_t>> MessageSeeds() {
  std::vector<std::vector<uint8_t>> seeds;
  {
    CMsgSerializer m(u"CMDHLV2_CLN_ON_START");
    seeds.push_back(Wire(m));
  }
  {
    CMsgSerializer m(u"CMDHLV2_HEARTBEAT_NOTIFY");
    ser::WriteWString(m, u"3F2504E0-4F89-11D3-9A0C-0305E82C3301");
    ser::WriteU32(m, 7);
    ser::WriteString(m, "narrow");
    uint8_t block[16] = {1, 2, 3};
    ser::WriteBlock(m, block, sizeof block);
    seeds.push_back(Wire(m));
  }
  {
    // A file-backed message whose file is long gone.
    CMsgSerializer m(u"CMDHLV2_SET_LOG_COMMON", 2);
    ser::WriteU32(m, 1);
    seeds.push_back(Wire(m));
  }
  // File-backed messages naming files outside the spill folder, or names no
  // writer makes: each must be refused without being opened or deleted.
  for (const char16_t* path : {u"/etc/passwd", u"/tmp/mst0001.tmp", u"C:\\Windows\\Temp\\mst1A2B.tmp",
                               u"\\\\server\\share\\mst1A2B.tmp", u"mst0001.tmp", u"../mst0001.tmp", u"/dev/zero"}) {
    CMsgSerializer m(u"CMDHLV2_SET_LOG_COMMON");
    ser::WriteWString(m, path);
    std::vector<uint8_t> wire = Wire(m);
    wire[16] |= CMsgSerializer::kFileFlag;  // header byte 4
    seeds.push_back(std::move(wire));
  }
  return seeds;
}

std::vector<std::vector<uint8_t>> RequestSeeds() {
  std::vector<std::vector<uint8_t>> seeds;
  for (const char* text : {"requestid=101&uid=3F2504E0-4F89-11D3-9A0C-0305E82C3301&computer=caf%C3%A9",
                           "a=1&A=2&x=%4", "x=1#y=2&flag&z=%G1%1G+%", "domain=%E2%82%AC%E2%82%AC&SA_ISR=CN%3Dx"}) {
    std::string s(text);
    seeds.emplace_back(s.begin(), s.end());
  }
  return seeds;
}

std::vector<std::vector<uint8_t>> ServiceSeeds() {
  std::vector<std::vector<uint8_t>> seeds;
  const auto add = [&](uint8_t pipe, std::vector<uint8_t> bytes) {
    bytes.insert(bytes.begin(), pipe);
    seeds.push_back(std::move(bytes));
  };
  {
    CMsgSerializer m(u"CMDHLV2_HEARTBEAT_NOTIFY");
    uint8_t block[1128] = {1};
    block[28] = 'A';
    ser::WriteBlock(m, block, sizeof block);
    add(0, Wire(m));
  }
  {
    CMsgSerializer m(u"CMDHLV2_CLN_ON_PROTECTION_STATUS");
    ser::WriteWString(m, u"3F2504E0-4F89-11D3-9A0C-0305E82C3301");
    ser::WriteU32(m, 17);
    add(0, Wire(m));
  }
  {
    CMsgSerializer m(u"CMDHLV2_CLN_REMOVE_CONFIG_REC");
    uint8_t block[128] = {65};
    ser::WriteBlock(m, block, sizeof block);
    add(0, Wire(m));
  }
  {
    CMsgSerializer m(u"CMDHSAV2_DATA");
    ser::WriteWString(m, u"CN=Vigilcrest Reply Signing,O=Vigilcrest Server");
    ser::WriteWString(m, u"01");
    ser::WriteI32(m, 42);
    ser::WriteBlock(m, "1\n0000000005", 12);
    add(1, Wire(m));
  }
  for (const char16_t* command : {u"CMDHLV2_CHECK_CLIENT_EXIST", u"CMDHLV2_GET_DLP_DEPLOY_SETTINGS"}) {
    CMsgSerializer m(command);
    ser::WriteWString(m, u"3F2504E0-4F89-11D3-9A0C-0305E82C3301");
    add(0, Wire(m));
  }
  {
    CMsgSerializer m(u"CMDHLV2_CLN_RQ_UPD");
    add(0, Wire(m));
  }
  {
    CMsgSerializer m(u"CMDHLV2_CLN_ACTIVE_RESTORE_OPP");
    ser::WriteI32(m, 52);
    char uid[37] = "3F2504E0-4F89-11D3-9A0C-0305E82C3301";
    char release[8] = "14.0.1";
    ser::WriteBlock(m, uid, sizeof uid);
    ser::WriteBlock(m, release, sizeof release);
    add(0, Wire(m));
  }
  // The update report, answered and not, and the certificate a client trusts.
  for (const uint32_t answer : {0u, 1u}) {
    tagCln_CgiOnUpdate record;
    record.answerWanted = answer;
    record.uid = u"3F2504E0-4F89-11D3-9A0C-0305E82C3301";
    record.release = u"14.0.1";
    record.program = u"14.0.1200";
    record.ptnfile = 1956100;
    CMsgSerializer m(u"CMDHLV2_CLN_ON_UPDATE");
    m << record;
    add(0, Wire(m));
  }
  {
    tagCln_SetCertificate record;
    record.uid = u"3F2504E0-4F89-11D3-9A0C-0305E82C3301";
    record.issuer = u"CN=Vigilcrest";
    record.serial = u"0A1B";
    CMsgSerializer m(u"CMDHLV2_CLN_SET_CERTIFICATE");
    m << record;
    add(0, Wire(m));
  }
  // Uploads naming a file in the server folder and one outside it.
  for (const char16_t* path : {u"/tmp/vgcr-fuzz-server/upl1A2B.tmp", u"/etc/passwd"}) {
    tagCln_UploadFile record;
    record.uid = u"3F2504E0-4F89-11D3-9A0C-0305E82C3301";
    record.fileName = u"logs.zip";
    record.tempPath = path;
    record.size = 3;
    record.md5 = u"900150983CD24FB0D6963F7D28E17F72";
    record.diskStatus = 1700;
    CMsgSerializer m(u"CMDHLV2_SET_LOG_COMMON");
    m << record;
    add(0, Wire(m));
  }
  // The VDI round trips.
  for (const char16_t* command : vdi::kCommands) {
    tagCln_VdiTask task;
    task.uid = u"3F2504E0-4F89-11D3-9A0C-0305E82C3301";
    task.pool = u"hv-07";
    task.taskKind = u"scheduled-scan";
    task.taskId = u"t-1";
    task.progress = 50;
    CMsgSerializer m(command);
    m << task;
    add(0, Wire(m));
  }
  // Every log record, filled, on its own pipe.
  for (const logrec::Layout* layout : logrec::kLayouts) {
    logrec::tagCln_Log record(*layout);
    record.SetUid("3F2504E0-4F89-11D3-9A0C-0305E82C3301");
    record.SetRelease("14.0.1");
    record.recordType = layout->firstRecordType;
    for (std::size_t i = 0; i < layout->keys.size(); ++i) {
      record.SetText(i, u"value");
      record.SetNumber(i, static_cast<int32_t>(i));
    }
    CMsgSerializer m(layout->command);
    m << record;
    add(layout->pipe == logrec::Pipe::kThreatLog ? 3 : 0, Wire(m));
  }
  for (const char16_t* text : {u"CMDHL_SET_MS_CFG\tuid\t[Manual_Scan]\r\nA=1\tB",
                               u"CMDHL_GET_MS_CFG\tpipe\tuid", u"CMDHL_IS_CONFIGFLAGSET\tpipe\tuid\t4096",
                               u"CMDHL_CMDHL_GET_CLN_ALERT_MSG\tpipe\t\t128",
                               u"CMDHL_PFW_UPDATE_CFW_COUNT\tuid\t0\t1\t2\t3\t4\t5\t6\ttext\t1",
                               // a reader naming a reply pipe of the protocol's form, and readers naming
                               // the service's own pipe and a path
                               u"CMDHL_GET_MS_CFG\t0105CMDHL_GET_MS_CFG12_34_56\tuid",
                               u"CMDHL_GET_MS_CFG\tVanta Labs VGCR Command Handler Manager\tuid",
                               u"CMDHL_GET_RT_CFG\t../../tmp/x\tuid"}) {
    std::vector<uint8_t> bytes;
    for (const char16_t* c = text; *c; ++c) {
      bytes.push_back(static_cast<uint8_t>(*c));
      bytes.push_back(static_cast<uint8_t>(*c >> 8));
    }
    add(0, bytes);
  }
  // File-backed messages naming files anywhere: refused, never opened.
  for (const char16_t* path : {u"/etc/passwd", u"/dev/zero", u"../mst0001.tmp"}) {
    CMsgSerializer m(u"CMDHLV2_SET_VIRUS_LOG");
    ser::WriteWString(m, path);
    std::vector<uint8_t> wire = Wire(m);
    wire[16] |= CMsgSerializer::kFileFlag;  // header byte 4
    add(0, std::move(wire));
  }
  return seeds;
}

std::vector<std::vector<uint8_t>> HttpSeeds() {
  const std::string path = "/vigilcrest/cgi/isapiClient.dll";
  const std::string big(60000, 'p');
  const std::string requests[] = {
      "GET " + path + "?requestid=206 HTTP/1.1\r\nHost: x\r\n\r\n",
      "GET " + path + "?requestid=206&uid=%E2%82%AC HTTP/1.1\r\nHost: x\r\n\r\nGET " + path +
          "?x=1 HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n",
      "POST " + path + " HTTP/1.1\r\nHost: x\r\nContent-Type: application/x-www-form-urlencoded\r\n"
          "Content-Length: 13\r\n\r\nrequestid=206",
      "POST " + path + " HTTP/1.1\r\nHost: x\r\nContent-Type: text/plain\r\nContent-Length: 60013\r\n\r\nrequestid=206" + big,
      "POST " + path + " HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\nd\r\nrequestid=206\r\n0\r\n\r\n",
      "POST " + path + " HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: 70000\r\n\r\n" + big,
      "HEAD " + path + "?requestid=206 HTTP/1.0\r\n\r\n",
      "GET /elsewhere HTTP/1.1\r\nHost: x\r\n\r\n",
  };
  std::vector<std::vector<uint8_t>> seeds;
  for (const char* mode : {"\0", "\1"}) {
    for (const std::string& request : requests) {
      const std::string seed = std::string(mode, 1) + request;
      seeds.emplace_back(seed.begin(), seed.end());
    }
  }
  return seeds;
}

std::vector<std::vector<uint8_t>> UploadSeeds() {
  std::vector<std::vector<uint8_t>> seeds;
  const auto add = [&](uint8_t first, uint8_t second, const std::string& text) {
    std::vector<uint8_t> bytes{first, second};
    bytes.insert(bytes.end(), text.begin(), text.end());
    seeds.push_back(std::move(bytes));
  };
  const std::string field = "--fz\r\nContent-Disposition: form-data; name=\"requestid\"\r\n\r\n501\r\n";
  const std::string file =
      "--fz\r\nContent-Disposition: form-data; name=\"BinaryDataBlock\"; filename=\"a \\\"b\\\".zip\"\r\n"
      "Content-Type: application/zip\r\n\r\nPK\x03\x04\r\n--f\r\n-\r\n--fz--\r\n";
  add(2, 7, field + file);
  add(0, 0, "preamble\r\n" + field + "--fz  \t\r\n\r\nno headers\r\n--fz--");
  add(4, 1, field + "--fz\r\nContent-Disposition: form-data; name=x; filename=\r\n\r\n");
  add(1, 0, "[RealTime_Scan]\r\nEnabled=1\r\nScanOn=Read,Write\r\nCompressedLayer=20\r\nFirstAction=Clean\r\n");
  add(1, 4, "[Scheduled_Scan]\nTime=23:59\nDay=Friday\nFrequency=Monthly\nCpuUsage=3\nTime=00:00");
  add(1, 8, "[Spyware_Scheduled_Scan]\nApprovedList=a;b\nAction=Deny\n=\nx");
  return seeds;
}

std::vector<std::vector<uint8_t>> EnvelopeSeeds() {
  std::vector<std::vector<uint8_t>> seeds;
  const auto add = [&](uint8_t mode, const std::string& text) {
    std::vector<uint8_t> bytes{mode};
    bytes.insert(bytes.end(), text.begin(), text.end());
    seeds.push_back(std::move(bytes));
  };
  const std::string texts[] = {"", "{\"requestid\":101,\"uid\":\"3F2504E0-4F89-11D3-9A0C-0305E82C3301\"}",
                               "Hello, envelope!", "caf\xC3\xA9 \xE6\x9D\xB1\xE4\xBA\xAC \xF0\x9F\x99\x82"};
  const EnvelopeForm forms[] = {EnvelopeForm::kCrypt, EnvelopeForm::kCryptEx, EnvelopeForm::kCryptEx3};
  for (uint8_t f = 0; f < 3; ++f) {
    for (const std::string& text : texts) {
      std::string envelope;
      if (StringEnvelope::Encrypt(forms[f], text, &envelope) != EnvelopeStatus::kOk) continue;
      add(0, envelope);
      add(static_cast<uint8_t>(1 + f), envelope.substr(StringEnvelope::Marker(forms[f]).size()));
      add(static_cast<uint8_t>(4 + f), text);
    }
  }
  add(7, "caf\xE9 \xED\xA0\x80 \xC0\xAF");
  // An unknown generation, unused bits set, a forged tag, a line break.
  for (const char* text : {"!CRYPTEX2!AAAA", "!CRYPT!vzoU5+oDLcuWuPs8HIzc1B==",
                           "!CRYPTEX3!AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA", "!CRYPT!AAAAAAAAAAAAAAAAAAAAAA==\r\n"}) {
    add(0, text);
  }
  return seeds;
}
