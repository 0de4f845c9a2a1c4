#include "service_peer.h"

#include <chrono>
#include <random>

#include "platform/errors.h"
#include "platform/pipe.h"
#include "platform/process.h"

namespace peer {

std::u16string Received::Command() const {
  if (version2) return message.command;
  return text.empty() ? std::u16string() : text[0];
}

std::u16string Received::ReplyPipe() const {
  if (version2) return message.identifier;
  return text.size() > 1 ? text[1] : std::u16string();
}

ServicePeer::ServicePeer(std::vector<std::u16string> pipes, uint32_t instancesPerPipe)
    : pipes_(std::move(pipes)), instancesPerPipe_(instancesPerPipe) {}

ServicePeer::~ServicePeer() { Stop(); }

std::vector<std::u16string> ServicePeer::DefaultPipes() {
  return {u"Vanta Labs VGCR Command Handler Manager", u"Vanta Labs VGCR Command Handler2 Manager",
          u"VgcServerNamePipe", u"VgcThreatLogServerNamePipe"};
}

bool ServicePeer::Start() {
  if (!stop_.Create(nullptr, false)) return false;
  stopping_ = false;
  for (const auto& pipe : pipes_) {
    auto listener = std::make_unique<CPipeListener>(
        pipe, instancesPerPipe_, [this, pipe](PipeRequest&& request) { Record(pipe, std::move(request)); });
    if (!listener->Start(stop_)) return false;
    listeners_.push_back(std::move(listener));
  }
  return true;
}

void ServicePeer::Stop() {
  if (listeners_.empty()) return;
  stopping_ = true;
  stop_.Set();
  for (auto& listener : listeners_) listener->Join();
  listeners_.clear();
  std::vector<std::thread> answers;
  {
    std::lock_guard lock(mutex_);
    answers.swap(answers_);
  }
  for (auto& t : answers) t.join();
}

void ServicePeer::Record(const std::u16string& pipe, PipeRequest&& request) {
  Received received;
  received.pipe = pipe;
  received.bytes = std::move(request.bytes);
  received.pieceSizes = std::move(request.pieceSizes);
  received.clientPid = request.clientPid;
  received.version2 = IsVersion2(received.bytes);
  if (received.version2) {
    received.message = DecodeMessage(received.bytes, deleteSpillFiles_);
  } else {
    received.text = DecodeText(received.bytes);
  }
  std::unique_lock lock(mutex_);
  auto script = scripts_.find(received.Command());
  // An immediate answer is given on this thread, as a service would; a
  // delayed or stalling one on a thread of its own.
  if (script != scripts_.end() && !stopping_ && script->second.delayMs == 0 &&
      script->second.kind != ReplyKind::kStall) {
    Reply reply = script->second;
    if (keepRecords_) received_.push_back(received);
    arrived_.notify_all();
    lock.unlock();
    Answer(received, reply);
    return;
  }
  // Earlier answer threads are joined now and then, so a long run does not
  // gather them.
  if (answers_.size() > 64) {
    for (auto& t : answers_) t.join();
    answers_.clear();
  }
  if (script != scripts_.end() && !stopping_) {
    Reply reply = script->second;
    Received copy = received;
    answers_.emplace_back([this, copy, reply] { Answer(copy, reply); });
  }
  if (keepRecords_) received_.push_back(std::move(received));
  arrived_.notify_all();
}

void ServicePeer::Answer(const Received& received, const Reply& reply) {
  if (reply.delayMs) {
    if (stop_.Wait(reply.delayMs) == plat::kWaitObject0) return;
  }
  const std::u16string pipe = received.ReplyPipe();
  switch (reply.kind) {
    case ReplyKind::kSilence:
      return;
    case ReplyKind::kCloseAtOnce:
      WriteToPipe(pipe, {}, reply.pieceSize);
      return;
    case ReplyKind::kGarbage: {
      std::mt19937 random(static_cast<uint32_t>(received.bytes.size()));
      Bytes garbage(300);
      for (auto& b : garbage) b = static_cast<uint8_t>(random());
      WriteToPipe(pipe, garbage, reply.pieceSize);
      return;
    }
    case ReplyKind::kTruncated: {
      Bytes bytes = reply.make ? reply.make(received) : reply.bytes;
      bytes.resize(std::min(bytes.size(), reply.truncateAt));
      WriteToPipe(pipe, bytes, reply.pieceSize);
      return;
    }
    case ReplyKind::kReply:
      WriteToPipe(pipe, reply.make ? reply.make(received) : reply.bytes, reply.pieceSize);
      return;
    case ReplyKind::kStall: {
      plat::PipeClient client;
      if (!client.Open(pipe.c_str())) return;
      const Bytes bytes = reply.make ? reply.make(received) : reply.bytes;
      uint32_t written = 0;
      if (!bytes.empty()) client.Write(bytes.data(), static_cast<uint32_t>(std::min(bytes.size(), reply.pieceSize)), &written);
      stop_.Wait(plat::kInfinite);
      return;
    }
  }
}

void ServicePeer::Script(const std::u16string& command, Reply reply) {
  std::lock_guard lock(mutex_);
  scripts_[command] = std::move(reply);
}

std::vector<Received> ServicePeer::WaitFor(std::size_t count, uint32_t timeoutMs) {
  std::unique_lock lock(mutex_);
  arrived_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return received_.size() >= count; });
  return received_;
}

std::vector<Received> ServicePeer::All() {
  std::lock_guard lock(mutex_);
  return received_;
}

void ServicePeer::Clear() {
  std::lock_guard lock(mutex_);
  received_.clear();
}

bool WriteToPipe(const std::u16string& pipe, const Bytes& bytes, std::size_t pieceSize) {
  plat::PipeClient client;
  for (int attempt = 0;; ++attempt) {
    if (client.Open(pipe.c_str())) break;
    if (plat::LastError() == plat::kErrorPipeBusy && plat::PipeClient::WaitAvailable(pipe.c_str(), 2000)) continue;
    if (attempt >= 20) return false;
    plat::SleepMs(10);
  }
  for (std::size_t at = 0; at < bytes.size(); at += pieceSize) {
    std::size_t n = std::min(pieceSize, bytes.size() - at);
    uint32_t written = 0;
    if (!client.Write(bytes.data() + at, static_cast<uint32_t>(n), &written)) return false;
  }
  client.Close();
  return true;
}

}  // namespace peer
