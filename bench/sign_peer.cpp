// A stand-in signing service for load tests: answers every "CMDHSAV2_DATA"
// on the second service pipe after a fixed delay, as a busy service would.
//   sign_peer DELAY_MS   (runs until killed)
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "service_peer.h"

int main(int argc, char** argv) {
  const uint32_t delayMs = argc > 1 ? static_cast<uint32_t>(std::atoi(argv[1])) : 5;
  peer::ServicePeer service({u"Vanta Labs VGCR Command Handler2 Manager"}, 32);
  service.SetKeepRecords(false);
  peer::Reply reply;
  reply.delayMs = delayMs;
  reply.make = [](const peer::Received& r) {
    return peer::Builder().Prologue(r.message.command, r.message.identifier).I32(0).WString(u"c2ln").U32(1).bytes();
  };
  service.Script(u"CMDHSAV2_DATA", reply);
  if (!service.Start()) {
    std::fprintf(stderr, "sign_peer: cannot listen\n");
    return 1;
  }
  std::printf("sign_peer: answering after %u ms\n", delayMs);
  std::fflush(stdout);
  for (;;) pause();
}
