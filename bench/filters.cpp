// How the work grows with the documents: members under a filter, elements that a range cuts off, levels of JSON.
#include <zal/zal.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "agents/agent.hpp"
#include "suites.hpp"
#include "support/temp_directory.hpp"
#include "support/timing.hpp"

namespace bench {

namespace {

using Text = std::unique_ptr<char, decltype(&std::free)>;
using Answer = std::unique_ptr<std::remove_pointer_t<ZAL_ObjectHandle>, decltype(&ZAL_Object_Destroy)>;

constexpr std::array kSizes = {100, 1000, 10000, 100000};
constexpr const char* kFiltered = "system/cpu?include=load+memory+tasks/list";

// ---- Members under a filter. Only a dataset's callback is given one, so the measurement runs in there.
// ---------------

std::function<void(ZAL_MessageHandle)> whatToDo;
std::exception_ptr failure;

int answerDataset(ZAL_MessageHandle /*request*/, ZAL_MessageHandle response, ZAL_MessageHandle /*same*/) {
  try {
    whatToDo(response);
  } catch (...) {
    failure = std::current_exception();
  }
  ZAL_Message_SetData(response, ZAL_Object_Create());
  return 0;
}

/// Calls `work` with a response that carries the filter of kFiltered.
void withFilter(std::function<void(ZAL_MessageHandle)> work) {
  whatToDo = std::move(work);
  const TempDirectory directory;
  const std::string path = directory.path() + "/agent";
  const auto agent = listenZalAskingFor(kFiltered, path);
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  options.interval = 1;
  zalstrlcpy(options.url, ("file://" + path).c_str(), sizeof options.url);
  const std::unique_ptr<std::remove_pointer_t<ZAL_ClientHandle>, decltype(&ZAL_Client_Destroy)> client{
      ZAL_Client_Create(&options), ZAL_Client_Destroy};
  ZAL_ServiceHandle const service = ZAL_TelemetryService_Create();
  for (const char* dataset : {"system", "as many", "as the agent awaits"})
    ZAL_TelemetryService_AddDataset(service, dataset, answerDataset);
  ZAL_Client_AddService(client.get(), service);
  ZAL_Client_Start(client.get());
  agent->meet();
  agent->send(Kind::kStatus, "{}");
  static_cast<void>(agent->receive());
  ZAL_Client_Stop(client.get());
  if (failure) std::rethrow_exception(failure);
}

/// An answer of `members` values, ten in an object, which all pass the filter.
std::string fill(ZAL_ObjectHandle top, int members) {
  constexpr int kTogether = 10;
  const Answer answer{top, ZAL_Object_Destroy};
  ZAL_ObjectHandle const cpu = ZAL_Object_AddObject(top, "cpu");
  ZAL_ObjectHandle const lists[] = {ZAL_Object_AddArray(cpu, "load"), ZAL_Object_AddArray(cpu, "memory"),
                                    ZAL_Object_AddArray(ZAL_Object_AddObject(cpu, "tasks"), "list")};
  for (int object = 0; object < members / kTogether; ++object) {
    ZAL_ObjectHandle const element = ZAL_Array_AddObject(lists[object % 3]);
    for (int i = 0; i < kTogether; ++i) ZAL_Object_AddInt32(element, "reading", i);
  }
  return Text{ZAL_Object_DumpOutput(top), std::free}.get();
}

void measureMembers(const Settings& settings, Report& report, ZAL_MessageHandle response) {
  for (const int members : kSizes) {
    const auto plain = [=] { return fill(ZAL_Object_Create(), members); };
    const auto filtered = [=] { return fill(ZAL_TelemetryObject_Create(response), members); };
    if (plain() != filtered()) throw std::runtime_error{"the filter took members away"};
    const int times = std::max(1, scaled(200000, settings.effort) / members);
    report.add({"answer of " + std::to_string(members) + " members", "ns a member", settings.rounds},
               {{"without a filter", [=] { return nanosecondsOf(times, plain) / members; }},
                {"three include paths", [=] { return nanosecondsOf(times, filtered) / members; }}});
  }
}

// ---- Elements and levels --------------------------------------------------------------------------------------------

/// A table of sizes: nanoseconds for each element of one run of `work`, whose input `prepare` makes anew each time.
template <class Sizes, class Prepare, class Work>
void measureGrowth(const char* name, const Sizes& sizes, const Settings& settings, Report& report, Prepare prepare,
                   Work work) {
  std::vector<Candidate> candidates;
  for (const int size : sizes) {
    const int times = std::max(1, scaled(300000, settings.effort) / size);
    candidates.push_back({std::to_string(size), [=] {
                            double seconds = 0;
                            for (int i = 0; i < times; ++i) {
                              auto input = prepare(size);
                              seconds += secondsOf([&] { work(input, size); });
                            }
                            return seconds * 1e9 / times / size;
                          }});
  }
  report.add({name, "ns each", settings.rounds}, candidates);
}

/// An object whose member "list" has `size` elements.
Answer listOf(int size) {
  Answer top{ZAL_Object_Create(), ZAL_Object_Destroy};
  ZAL_ObjectHandle const list = ZAL_Object_AddArray(top.get(), "list");
  for (int i = 0; i < size; ++i) ZAL_Array_AddInt32(list, i);
  return top;
}

void requireElements(const Answer& top, int expected) {
  const Answer list{ZAL_Object_GetArray(top.get(), "list"), ZAL_Object_Destroy};
  uint32_t count = 0;
  ZAL_Array_GetSize(list.get(), &count);
  if (count != static_cast<uint32_t>(expected)) throw std::runtime_error{"a range kept something else"};
}

void pruneArray(Answer& top, int size) {
  const Answer list{ZAL_Object_GetArray(top.get(), "list"), ZAL_Object_Destroy};
  ZAL_Array_Prune(list.get(), size / 2, 10);
}

void pruneDocument(Answer& top, int size) {
  const std::string request = "list?range=" + std::to_string(size / 2) + ":10";
  json_PruneArrayRangeObjects(ZAL_Object_GetInternal(top.get()), request.c_str());
}

std::string nested(int levels) {
  std::string text;
  for (int i = 0; i < levels; ++i) text += R"({"k":)";
  text += '1';
  text.append(static_cast<std::size_t>(levels), '}');
  return text;
}

void readAndPrint(const std::string& text, int /*levels*/) {
  const Answer top{ZAL_Object_CreateFromJson(text.data(), text.size()), ZAL_Object_Destroy};
  if (text != Text{ZAL_Object_DumpOutput(top.get()), std::free}.get()) throw std::runtime_error{"printed otherwise"};
}

}  // namespace

void measureFilters(const Settings& settings, Report& report) {
  for (const auto prune : {pruneArray, pruneDocument}) {
    Answer top = listOf(100);
    prune(top, 100);
    requireElements(top, 10);
  }
  withFilter([&](ZAL_MessageHandle response) { measureMembers(settings, report, response); });
  measureGrowth("elements that ZAL_Array_Prune cuts off", kSizes, settings, report, listOf, pruneArray);
  measureGrowth("elements that json_PruneArrayRangeObjects cuts off", kSizes, settings, report, listOf, pruneDocument);
  measureGrowth("levels of JSON parsed, printed and freed", std::array{10, 100, 1000}, settings, report, nested,
                readAndPrint);
}

}  // namespace bench
