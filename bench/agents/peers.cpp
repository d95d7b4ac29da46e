#include "agents/agent.hpp"

namespace bench {

const std::vector<Peer>& peers() {
  static const std::vector<Peer> all = {
      {"by hand", "bench_client_base", listenPlain}, {"libzal-client", "bench_client_zal", listenZal},
#ifdef BENCH_SDBUS
      {"sd-bus", "bench_client_sdbus", listenSdBus},
#endif
#ifdef BENCH_ZMQ
      {"ZeroMQ", "bench_client_zmq", listenZeroMq},
#endif
#ifdef BENCH_NNG
      {"nng", "bench_client_nng", listenNng},
#endif
  };
  return all;
}

}  // namespace bench
