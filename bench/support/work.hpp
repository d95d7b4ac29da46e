// The work of the client, written by hand with cJSON, for every candidate but the library; and what both sides of every
// candidate agree on.
#pragma once

#include <string>
#include <string_view>

namespace bench {

/// What an agent asks for: the first byte of each message of the candidates that have no names of their own.
enum class Kind : char { kStatus = 's', kDocument = 'd', kEvents = 'e' };

/// The data of every status answer, as it must arrive.
extern const std::string_view kStatusData;

/// A request of about 200 bytes.
std::string statusRequest();
/// A request of about `size` bytes: readings of sensors.
std::string documentRequest(std::size_t size);
/// Asks for `count` events.
std::string eventsRequest(int count);

std::string answerStatus(std::string_view request);
/// Answers with the number of readings.
std::string answerDocument(std::string_view request);
int eventsWanted(std::string_view request);
/// An event of about 300 bytes.
std::string eventText(int number);

/// The answer to a message of the kind that is told by its first byte.
std::string answer(std::string_view message);

}  // namespace bench
