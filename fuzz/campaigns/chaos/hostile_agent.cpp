#include "fuzz/campaigns/chaos/hostile_agent.hpp"

#include <algorithm>
#include <numeric>
#include <thread>

#include "fuzz/campaigns/chaos/images.hpp"

namespace zal::campaign {

namespace {

using std::chrono::milliseconds;
using test::encodeImage;
using test::WireImage;
using test::WireRecord;

constexpr std::uint32_t kFirstQuestionId = 65531;

std::string idPayload(int id, std::size_t padding = 0) {
  std::string payload = "{\"id\":" + std::to_string(id);
  if (padding != 0) payload += ",\"padding\":\"" + std::string(padding, 'x') + '"';
  return payload + '}';
}

WireRecord answerTo(int requestId, const std::string& payload) {
  return {.code = ZAL_IPC_CMD_GATEWAY_RESPONSE, .payload = payload, .requestId = requestId};
}

int questionId(long number) {
  return static_cast<int>((kFirstQuestionId + static_cast<std::uint32_t>(number)) & 0xffff);
}

}  // namespace

const std::vector<HostileAgent::Act> HostileAgent::kActs{
    {10, &HostileAgent::ask},   {4, &HostileAgent::askByteByByte},      {4, &HostileAgent::askManyJoined},
    {8, &HostileAgent::askCut}, {8, &HostileAgent::sendOddities},       {6, &HostileAgent::sendUndecodable},
    {4, &HostileAgent::notify}, {6, &HostileAgent::configure},          {8, &HostileAgent::answerQuestions},
    {1, &HostileAgent::flood},  {3, &HostileAgent::sendGarbageAndGoOn}, {3, &HostileAgent::beSilent},
};

const std::vector<void (HostileAgent::*)()> HostileAgent::kEnds{
    &HostileAgent::endAtOnce,      &HostileAgent::endInsideAnImage, &HostileAgent::endWithReset, &HostileAgent::endHalf,
    &HostileAgent::endWithGarbage, &HostileAgent::endWithOversized, &HostileAgent::endUnread,
};

void Lateness::add(Milliseconds late, Milliseconds machine) {
  constexpr Milliseconds kWorkAhead{200};  // of the workers, who subscribe as well
  if (late > kWorkAhead + machine)
    throw Failure{"the client is back " + std::to_string(late.count()) + " ms too late, at most " +
                  std::to_string(machine.count()) + " ms by the machine"};
  ++returns;
  worstMs = std::max(worstMs, late.count());
  if (late.count() > 20) ++above20Ms;
}

HostileAgent::HostileAgent(unsigned seed, Listener& listener, Application& application)
    : random_{seed}, listener_{listener}, application_{application} {}

void HostileAgent::round() {
  while (random_.oneIn(8)) {  // without a word
    connection_ = listener_.accept();
    if (random_.oneIn(2)) std::this_thread::sleep_for(milliseconds{random_.below(5)});
    leave();
  }
  meet(configuration());
  const int weight =
      std::accumulate(kActs.begin(), kActs.end(), 0, [](int sum, const Act& act) { return sum + act.weight; });
  After after = After::kGoOn;
  for (int acts = random_.between(1, 6); acts > 0 && after == After::kGoOn; --acts) {
    int ticket = random_.below(weight);
    const auto act =
        std::find_if(kActs.begin(), kActs.end(), [&](const Act& one) { return (ticket -= one.weight) < 0; });
    after = (this->*act->perform)();
    pump(milliseconds{0});
  }
  if (after == After::kGoOn) {
    if (random_.oneIn(2)) settle();
    (this->*random_.oneOf(kEnds))();
  }
  leave();
}

// Being there, and going.

void HostileAgent::meet(const std::string& configuration) {
  connection_ = listener_.accept();
  isConfigurationAsked_ = false;
  isSubscribed_ = false;
  const auto await = [&](const bool& isThere, const char* what) {
    for (const auto end = Clock::now() + kPatience; !isThere; pump(kPatience))
      if (Clock::now() > end) throw Failure{what};
  };
  await(isConfigurationAsked_, "the client does not ask for its configuration");
  sendCut(encodeImage({{.code = ZAL_IPC_CMD_CONFIG, .payload = configuration}}));
  await(isSubscribed_, "the client does not subscribe");
  lateness_.add(Clock::now() - back_ - milliseconds{Application::kIntervalMs + 100}, sinceBack_.sum());
}

void HostileAgent::leave() {
  connection_ = Connection{Descriptor{}};
  ledger_.abandon();
  if (random_.oneIn(4)) vanish();
  sinceBack_ = {};
  back_ = Clock::now();
}

void HostileAgent::vanish() {
  listener_.vanish();
  std::this_thread::sleep_for(milliseconds{random_.below(20)});
  listener_.comeBack();
}

// What goes on all the time.

void HostileAgent::pump(milliseconds patience, std::size_t most) {
  connection_.receive(patience, most);
  while (const auto image = connection_.takeImage()) take(*image);
}

void HostileAgent::take(const WireImage& image) {
  if (ledger_.take(image)) return;
  const WireRecord& record = image.front();
  switch (record.code) {
    case ZAL_IPC_CMD_GET_CONFIG:
      isConfigurationAsked_ = true;
      return;
    case ZAL_IPC_CMD_SUBSCRIBE:
      if (image.size() < 5) throw Failure{"a method is not subscribed"};  // a sixth comes and goes
      isSubscribed_ = true;
      return;
    case ZAL_IPC_CMD_EVENT:
      return takeEvent(record);
    case ZAL_IPC_CMD_GATEWAY_REQUEST:
      questions_[record.requestId] = record.payload.substr(record.payload.find(':') + 1);
      return;
    default:
      throw Failure{"the client sent a record of code " + std::to_string(record.code)};
  }
}

/// An event may be lost with its connection, but neither doubled nor overtaken by another of its thread.
void HostileAgent::takeEvent(const WireRecord& record) {
  ++events_;
  if (record.name == "-1") return;  // sent by workers, side by side
  const int number = std::stoi(record.payload.substr(record.payload.find("\"number\":") + 9));
  const auto [last, isFirst] = lastEvents_.try_emplace(record.name, number);
  if (!isFirst && number <= last->second) throw Failure{"an event that came twice or too late"};
  last->second = number;
}

void HostileAgent::settle() {
  for (const auto end = Clock::now() + kPatience; !ledger_.isSettled(); pump(milliseconds{100}))
    if (Clock::now() > end) throw Failure{ledger_.missing()};
}

/// Has the client end every gateway request: those that did not reach the agent are answered too, as if they had.
void HostileAgent::settleAll() {
  settle();
  answerQuestions();
  auto next = Clock::now();
  for (const auto end = next + kPatience; application_.openQuestions() != 0; pump(milliseconds{20})) {
    if (Clock::now() < next) continue;
    next += milliseconds{500};  // a worker may still be about to ask
    std::string answers;
    for (long number = sweptQuestions_; number < application_.questions(); ++number)
      answers += encodeImage({answerTo(questionId(number), "{\"lost\":1}")});
    connection_.send(answers);
    if (Clock::now() > end) throw Failure{"a gateway request was answered and its callback not called"};
  }
  sweptQuestions_ = application_.questions();
  questions_.clear();
  ask();  // answered behind all that is left in the queue of the workers
  settle();
  if (ledger_.tally().ownAnswers > application_.ownRequests()) throw Failure{"a second answer to a local request"};
  application_.check();
}

void HostileAgent::sendCut(const std::string& bytes) {
  for (std::string_view rest = bytes; !rest.empty();) {
    const auto size = static_cast<std::size_t>(random_.between(1, 1 + static_cast<int>(bytes.size() / 3)));
    connection_.send(rest.substr(0, size));
    rest.remove_prefix(std::min(size, rest.size()));
    if (random_.oneIn(3)) std::this_thread::yield();
  }
}

std::string HostileAgent::configuration() {
  switch (random_.below(6)) {
    case 0:
      return {};
    case 1:
      return "{broken";
    case 2:
      return R"({"filler":")" + std::string(static_cast<std::size_t>(random_.below(100'000)), 'f') + "\"}";
    default:
      return R"({"events":{"settings":{"alarm":{"enabled":true,"limit":)" + std::to_string(random_.below(100)) +
             R"(,"unit":"dB"}}}})";
  }
}

// Requests.

WireRecord HostileAgent::request() {
  static const std::vector<std::pair<std::string, std::string>> kServed{
      {"svc", "echo"}, {"svc", "echo/some/path"}, {"svc", "echo?include=id"}, {"telemetry", "probe?include=id"}};
  if (random_.oneIn(6)) return vainRequest();
  auto [service, name] = random_.oneOf(kServed);
  if (random_.oneIn(40)) name = random_.oneIn(2) ? "slow" : "talk", service = "svc";
  const int id = ledger_.ask(service, name);
  const auto padding = static_cast<std::size_t>(random_.oneIn(10) ? random_.below(20'000) : 0);
  return {.code = ZAL_IPC_CMD_REQUEST,
          .service = service,
          .name = name,
          .payload = idPayload(id, padding),
          .requestId = id};
}

WireRecord HostileAgent::vainRequest() {
  static const std::vector<std::pair<std::string, std::string>> kUnserved{
      {"svc", "hollow"},
      {"svc", "unknown"},
      {"nobody", "echo"},
      {"svc", std::string(300, 'm')},
      {std::string(300, 's'), "echo"},
      {"svc/echo", "echo"},
  };
  const auto& [service, name] = random_.oneOf(kUnserved);
  return {.code = ZAL_IPC_CMD_REQUEST, .service = service, .name = name, .requestId = ledger_.askInVain()};
}

std::string HostileAgent::requests(int images, int mostRecords) {
  std::string bytes;
  for (; images > 0; --images) {
    WireImage image;
    for (int records = random_.between(1, mostRecords); records > 0; --records) image.push_back(request());
    bytes += encodeImage(image);
  }
  return bytes;
}

// Acts.

HostileAgent::After HostileAgent::ask() {
  connection_.send(requests(random_.between(1, 5), 5));
  return After::kGoOn;
}

HostileAgent::After HostileAgent::askByteByByte() {
  const std::string bytes = requests(1, 2).substr();
  if (bytes.size() > 2000) {
    connection_.send(bytes);
    return After::kGoOn;
  }
  for (const char& byte : bytes) connection_.send({&byte, 1});
  return After::kGoOn;
}

HostileAgent::After HostileAgent::askManyJoined() {
  connection_.send(requests(random_.between(100, 400), 1));
  return After::kGoOn;
}

HostileAgent::After HostileAgent::askCut() {
  sendCut(requests(random_.between(1, 10), 4));
  return After::kGoOn;
}

HostileAgent::After HostileAgent::sendOddities() {
  const auto odd = [&](const std::string& name, const std::string& payload, bool isTold) {
    const auto id = static_cast<std::uint32_t>(ledger_.ask("svc", name, isTold));
    RawRecord record{ZAL_IPC_CMD_REQUEST, "svc", name, random_.bytes(100), payload, id};
    if (isTold) record.payload = idPayload(static_cast<int>(id));
    record.requestId |= static_cast<std::uint32_t>(random_.below(0x7fff)) << 16;  // the wire has room for more
    return rawImage(record, random_.oneIn(2));
  };
  const auto plain = [&](std::uint32_t code, const std::string& name, const std::string& payload) {
    return rawImage(
        {code, "svc", name, {}, payload, static_cast<std::uint32_t>(questionId(application_.questions() + 20'000))},
        random_.oneIn(2));
  };
  static constexpr std::array<std::uint32_t, 8> kForeignCodes{0, 1, 3, 4, 7, 10, 1000, 0xffffffff};
  std::vector<std::string> images{
      odd("echo", {}, true),
      odd("echo", {}, false),
      odd("echo", "{no JSON", false),
      odd("echo", random_.bytes(500), false),
      plain(random_.oneOf(kForeignCodes), "echo", random_.bytes(50)),
      plain(ZAL_IPC_CMD_REQUEST, "no uri", "{}"),  // not answered
      plain(ZAL_IPC_CMD_NOTIFY, "onSomething", "{}"),
      plain(ZAL_IPC_CMD_CONFIG, {}, "{broken"),
      plain(ZAL_IPC_CMD_GATEWAY_RESPONSE, {}, "{}"),
      encodeImage({}),
  };
  std::string bytes;
  for (std::size_t i = images.size(); i > 0; --i) {
    std::swap(images[i - 1], images[static_cast<std::size_t>(random_.below(static_cast<int>(i)))]);
    bytes += images[i - 1];
  }
  sendCut(bytes);
  return After::kGoOn;
}

HostileAgent::After HostileAgent::sendUndecodable() {
  connection_.send(requests(1, 2) + undecodableImage(random_) + requests(1, 2) + undecodableImage(random_) +
                   requests(1, 1));
  return After::kGoOn;
}

HostileAgent::After HostileAgent::notify() {
  static const std::vector<std::string> kNotices{"onConnect", "onDisconnect", "onProfileChanged"};
  connection_.send(encodeImage({{.code = ZAL_IPC_CMD_NOTIFY,
                                 .service = "profile",
                                 .name = random_.oneOf(kNotices),
                                 .payload = configuration()}}));
  return After::kGoOn;
}

HostileAgent::After HostileAgent::configure() {
  const std::string bytes = encodeImage({{.code = ZAL_IPC_CMD_CONFIG, .payload = configuration()}});
  if (random_.oneIn(2))
    sendCut(bytes);
  else
    connection_.send(bytes);
  return After::kGoOn;
}

/// Those that came by earlier connections too, and now and then twice.
HostileAgent::After HostileAgent::answerQuestions() {
  std::string answers;
  for (const auto& [id, number] : questions_) {
    const std::string answer = encodeImage({answerTo(id, "{\"answer\":" + number.substr(0, number.find('}')) + '}')});
    answers += answer;
    if (random_.oneIn(10)) answers += answer;
  }
  questions_.clear();
  connection_.send(answers);
  return After::kGoOn;
}

HostileAgent::After HostileAgent::flood() {
  connection_.send(requests(random_.between(10, 40), 50));
  for (int reads = 200; reads > 0; --reads) pump(milliseconds{1}, static_cast<std::size_t>(random_.between(1, 200)));
  return After::kGoOn;
}

/// What is left of a broken stream ends with the block that is read at once; the next block must begin with an image.
HostileAgent::After HostileAgent::sendGarbageAndGoOn() {
  settle();
  if (listener_.isTcp()) {  // where nobody can tell what has been read
    connection_.send(garbage(random_));
    return After::kEnd;
  }
  connection_.awaitRead();
  if (random_.oneIn(2)) {
    connection_.send(encodeImage({}).substr(0, static_cast<std::size_t>(random_.between(1, 2))));
    connection_.awaitRead();
  }
  connection_.send(garbage(random_));
  connection_.awaitRead();
  return After::kGoOn;
}

HostileAgent::After HostileAgent::beSilent() {
  std::this_thread::sleep_for(milliseconds{random_.below(4)});
  return After::kGoOn;
}

// Ends.

void HostileAgent::endInsideAnImage() {
  const std::string bytes = requests(3, 3);
  connection_.send(
      std::string_view{bytes}.substr(0, static_cast<std::size_t>(random_.below(static_cast<int>(bytes.size())))));
}

void HostileAgent::endWithReset() {
  ask();
  connection_.resetOnClose();
}

void HostileAgent::endHalf() {
  ask();
  connection_.endSending();
  std::this_thread::sleep_for(milliseconds{random_.below(3)});
}

void HostileAgent::endWithGarbage() {
  connection_.send(requests(2, 2) + garbage(random_) + requests(2, 2));
}

void HostileAgent::endWithOversized() {
  connection_.send(requests(2, 2) + oversizedFront(random_) + requests(2, 2));
}

void HostileAgent::endUnread() {
  askManyJoined();
  std::this_thread::sleep_for(milliseconds{random_.below(5)});
}

}  // namespace zal::campaign
