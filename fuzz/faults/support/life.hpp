// A client's life from create to destroy with the agent of agent.hpp, and how it recovers once its fault has ended.
#pragma once

#include <string>

namespace faults {

/// Where the agents listen, by a Unix-domain socket and by TCP.
void setAgentUrls(std::string unixDomain, std::string tcp);

/// Creates a client, has it answer requests, send events and gateway requests and read its configuration, stops and
/// starts it again, and destroys it. When something has failed in the meantime, the fault ends, and the client must
/// answer requests again.
void liveOverUnixDomain();
void liveOverTcp();

}  // namespace faults
