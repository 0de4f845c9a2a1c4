// The receiving end of a service pipe: several instances of one name, each
// served by a thread of its own. A request is every pipe message one client
// writes before it closes, joined; the instance listens again before the
// request is handed on, so a slow request never holds the name.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/event.h"
#include "platform/pipe.h"

struct PipeRequest {
  std::vector<uint8_t> bytes;        // the pipe messages joined
  std::vector<uint32_t> pieceSizes;  // the size of each pipe message
  uint32_t clientPid = 0;
  bool tooLong = false;              // cut at the listener's limit
  uint32_t endError = 0;             // what ended a request that holds no byte
};

class CPipeListener {
 public:
  using Handler = std::function<void(PipeRequest&&)>;
  // A local client could otherwise make a listener hold any amount of
  // memory; the extension's own requests stay under 2 MiB inline.
  static constexpr std::size_t kDefaultMaxRequest = 16u << 20;

  CPipeListener(std::u16string name, uint32_t instances, Handler handler,
                std::size_t maxRequest = kDefaultMaxRequest);
  ~CPipeListener();
  CPipeListener(const CPipeListener&) = delete;
  CPipeListener& operator=(const CPipeListener&) = delete;

  // Every instance is listening when this returns true (Wine turns clients
  // away until an instance's first connect has started). The threads run
  // until `stop` is set; the listener must outlive them (Join).
  bool Start(const plat::Event& stop);
  void Join();
  const std::u16string& Name() const { return name_; }
  // Clients dropped for taking too long: no whole request within 5 s of
  // connecting, or no first piece within 500 ms while half the instances
  // or more wait for one.
  uint64_t LateClients() const { return lateClients_.load(); }
  // Clients that connected and ended without sending a byte, and the error
  // the last of them ended with.
  uint64_t EmptyClients() const { return emptyClients_.load(); }
  uint32_t LastEmptyError() const { return lastEmptyError_.load(); }

 private:
  struct Instance {
    plat::PipeServerEnd end;
    bool connected = false;
    std::thread thread;
  };
  void Serve(Instance& instance, const plat::Event& stop);
  bool AwaitClient(Instance& instance, const plat::Event& stop);
  bool ReadRequest(Instance& instance, const plat::Event& stop, PipeRequest* request, bool* late);

  std::u16string name_;
  uint32_t count_;
  Handler handler_;
  std::size_t maxRequest_;
  std::vector<std::unique_ptr<Instance>> instances_;
  std::atomic<uint64_t> lateClients_{0};
  std::atomic<uint64_t> emptyClients_{0};
  std::atomic<uint32_t> lastEmptyError_{0};
  std::atomic<uint32_t> waitingFirst_{0};  // instances waiting for a first piece
};
