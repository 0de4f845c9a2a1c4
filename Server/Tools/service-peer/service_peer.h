// A stand-in for the server's command-handler service: it listens
// on the service pipes and the notification pipes, decodes what arrives
// (with wire_format, independently of the channel), records it, and answers
// round trips as a test scripts it: a reply, a delay, garbage, a truncated
// reply, a reply pipe opened and closed at once, or silence.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "channel/pipe_Listener.h"
#include "platform/event.h"
#include "wire_format.h"

namespace peer {

struct Received {
  std::u16string pipe;
  Bytes bytes;                       // the pipe messages joined
  std::vector<uint32_t> pieceSizes;  // the size of each pipe message
  uint32_t clientPid = 0;
  bool version2 = false;
  Message message;                   // a version-2 message
  std::vector<std::u16string> text;  // a version-1 text's fields
  std::u16string Command() const;
  // Where a round trip's answer goes: the identifier (version 2) or the
  // first argument (version 1).
  std::u16string ReplyPipe() const;
};

// kStall connects, writes the reply and then holds the pipe open without
// ending the reply until the stand-in stops.
enum class ReplyKind { kReply, kSilence, kGarbage, kTruncated, kCloseAtOnce, kStall };

struct Reply {
  ReplyKind kind = ReplyKind::kReply;
  Bytes bytes;                    // what kReply and kTruncated send
  std::function<Bytes(const Received&)> make;  // or built per request
  uint32_t delayMs = 0;
  std::size_t truncateAt = 0;     // kTruncated: bytes kept
  std::size_t pieceSize = 1024;   // how much one pipe message carries
};

class ServicePeer {
 public:
  explicit ServicePeer(std::vector<std::u16string> pipes = DefaultPipes(), uint32_t instancesPerPipe = 2);
  ~ServicePeer();
  ServicePeer(const ServicePeer&) = delete;
  ServicePeer& operator=(const ServicePeer&) = delete;

  static std::vector<std::u16string> DefaultPipes();

  // Listening when this returns true.
  bool Start();
  void Stop();

  // How to answer a command (by its name); unscripted commands get no answer.
  void Script(const std::u16string& command, Reply reply);
  // Whether file-backed messages' files are deleted once read (as the
  // service does); on by default.
  void SetDeleteSpillFiles(bool value) { deleteSpillFiles_ = value; }
  // Whether requests are kept for WaitFor/All (benchmarks turn it off).
  void SetKeepRecords(bool value) { keepRecords_ = value; }

  // Waits until `count` requests have arrived (or the time is up).
  std::vector<Received> WaitFor(std::size_t count, uint32_t timeoutMs = 5000);
  std::vector<Received> All();
  void Clear();

 private:
  void Record(const std::u16string& pipe, PipeRequest&& request);
  void Answer(const Received& received, const Reply& reply);

  std::vector<std::u16string> pipes_;
  uint32_t instancesPerPipe_;
  std::vector<std::unique_ptr<CPipeListener>> listeners_;
  plat::Event stop_;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> deleteSpillFiles_{true};
  std::atomic<bool> keepRecords_{true};

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<Received> received_;
  std::map<std::u16string, Reply> scripts_;
  std::vector<std::thread> answers_;
};

// Writes bytes to a pipe in pieces, as the service does with its replies.
bool WriteToPipe(const std::u16string& pipe, const Bytes& bytes, std::size_t pieceSize = 1024);

}  // namespace peer
