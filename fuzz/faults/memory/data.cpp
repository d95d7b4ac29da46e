// Scenarios of the data model, messages and documents.
#include <array>
#include <cstring>

#include "memory/scenario.hpp"

namespace faults {

namespace {

constexpr char kDocument[] =
    R"({"n":1,"t":"12","b":true,"d":0.5,"list":[1,"2",true,{"k":1},[1]],"object":{"k":{"deep":"x"}}})";

int sizeOf(ZAL_ObjectHandle handle) {
  return cJSON_GetArraySize(ZAL_Object_GetInternal(handle));
}

/// A tree of the scenario's own, which is none of the library's allocations.
cJSON* makeNode(const char* text = R"({"a":{"b":1},"c":[1,2]})") {
  const Aside aside;
  cJSON* const node = cJSON_Parse(text);
  require(node != nullptr, "a tree of the scenario's own");
  return node;
}

void readMembers(ZAL_ObjectHandle handle) {
  std::int32_t number = 0;
  std::uint32_t unsignedNumber = 0;
  std::int64_t wide = 0;
  std::uint64_t unsignedWide = 0;
  double real = 0;
  std::uint8_t flag = 0;
  FAULTS_REQUIRE(FAULTS_ATTEMPT(0, ZAL_Object_GetInt32(handle, "n", &number)) == 0 || number == 1);
  FAULTS_REQUIRE(FAULTS_ATTEMPT(0, ZAL_Object_GetUint32(handle, "n", &unsignedNumber)) == 0 || unsignedNumber == 1);
  FAULTS_REQUIRE(FAULTS_ATTEMPT(0, ZAL_Object_GetInt64(handle, "t", &wide)) == 0 || wide == 12);
  FAULTS_REQUIRE(FAULTS_ATTEMPT(0, ZAL_Object_GetUint64(handle, "t", &unsignedWide)) == 0 || unsignedWide == 12);
  FAULTS_REQUIRE(FAULTS_ATTEMPT(0, ZAL_Object_GetDouble(handle, "d", &real)) == 0 || real == 0.5);
  FAULTS_REQUIRE(FAULTS_ATTEMPT(0, ZAL_Object_GetBool(handle, "b", &flag)) == 0 || flag == 1);
  const char* const text = FAULTS_ATTEMPT(nullptr, ZAL_Object_GetString(handle, "object:k:deep"));
  FAULTS_REQUIRE(text == nullptr || std::strcmp(text, "x") == 0);
  if (const Object view{FAULTS_ATTEMPT(nullptr, ZAL_Object_GetObject(handle, "object:k"))})
    FAULTS_REQUIRE(sizeOf(view.get()) == 1);
}

void readElements(ZAL_ObjectHandle handle) {
  const Array list{FAULTS_ATTEMPT(nullptr, ZAL_Object_GetArray(handle, "list"))};
  if (!list) return;
  std::uint32_t size = 0;
  std::int32_t number = 0;
  double real = 0;
  std::uint8_t flag = 0;
  std::array<char, 8> text{};
  FAULTS_REQUIRE(ZAL_Array_GetSize(list.get(), &size) == 1 && size == 5);
  FAULTS_REQUIRE(ZAL_Array_GetInt32(list.get(), 0, &number) == 1 && number == 1);
  FAULTS_REQUIRE(ZAL_Array_GetDouble(list.get(), 1, &real) == 1 && real == 2);
  FAULTS_REQUIRE(ZAL_Array_GetBool(list.get(), 2, &flag) == 1 && flag == 1);
  FAULTS_REQUIRE(ZAL_Array_GetString(list.get(), 1, text.data(), text.size()) == 1);
  if (const Object element{FAULTS_ATTEMPT(nullptr, ZAL_Array_GetObject(list.get(), 3))})
    FAULTS_REQUIRE(sizeOf(element.get()) == 1);
  if (const Array element{FAULTS_ATTEMPT(nullptr, ZAL_Array_GetArray(list.get(), 4))})
    FAULTS_REQUIRE(sizeOf(element.get()) == 1);
  if (const Array part{FAULTS_ATTEMPT(nullptr, ZAL_Array_GetSubArray(list.get(), 1, 2))})
    FAULTS_REQUIRE(sizeOf(part.get()) == 2);
}

/// Adds a member of every simple kind to an empty object. What was not added is not there.
void addLeaves(ZAL_ObjectHandle to) {
  int added = 0;
  added += FAULTS_ATTEMPT(0, ZAL_Object_AddString(to, "text", "value"));
  added += FAULTS_ATTEMPT(0, ZAL_Object_AddInt32(to, "i32", -1));
  added += FAULTS_ATTEMPT(0, ZAL_Object_AddUint32(to, "u32", 1));
  added += FAULTS_ATTEMPT(0, ZAL_Object_AddInt64(to, "i64", -1));
  added += FAULTS_ATTEMPT(0, ZAL_Object_AddUint64(to, "u64", 1));
  added += FAULTS_ATTEMPT(0, ZAL_Object_AddDouble(to, "double", 0.5));
  added += FAULTS_ATTEMPT(0, ZAL_Object_AddBool(to, "bool", 1));
  added += FAULTS_ATTEMPT(0, ZAL_Object_AddNull(to, "null"));
  added += FAULTS_ATTEMPT(0, ZAL_Object_AddBlob(to, "blob", "bytes", 5));
  FAULTS_REQUIRE(sizeOf(to) == added);
}

void addBranches(ZAL_ObjectHandle to) {
  ZAL_Object_AddSecureBlob(to, "secret", "bytes", 5);
  if (ZAL_ObjectHandle child = FAULTS_ATTEMPT(nullptr, ZAL_Object_AddObject(to, "object"))) addLeaves(child);
  if (ZAL_ObjectHandle list = FAULTS_ATTEMPT(nullptr, ZAL_Object_AddArray(to, "array"))) {
    FAULTS_REQUIRE(ZAL_Object_IsArray(list) == 1);
    static_cast<void>(FAULTS_ATTEMPT(0, ZAL_Object_AddInt32(list, nullptr, 1)));
  }
  ZAL_Object_AddJson(to, "json", makeNode());
  ZAL_ObjectHandle const child = FAULTS_ATTEMPT(nullptr, ZAL_Object_Create());
  if (child == nullptr) return;
  static_cast<void>(FAULTS_ATTEMPT(0, ZAL_Object_AddInt32(child, "member", 1)));
  static_cast<void>(FAULTS_ATTEMPT(nullptr, ZAL_Object_AddObject(child, "empty")));
  ZAL_Object_AppendObject(to, "appended", child);
}

void print(ZAL_ObjectHandle handle) {
  const Text text{FAULTS_ATTEMPT(nullptr, ZAL_Object_DumpOutput(handle))};
  if (!text) return;
  const Aside aside;
  const Node again{cJSON_Parse(text.get())};
  require(again && cJSON_GetArraySize(again.get()) == sizeOf(handle), "what is printed is whole");
}

}  // namespace

void objects() {
  if (const Object document{FAULTS_ATTEMPT(nullptr, ZAL_Object_CreateFromJson(kDocument, sizeof kDocument - 1))}) {
    readMembers(document.get());
    readElements(document.get());
    print(document.get());
  }
  cJSON* const node = makeNode();
  if (const Object owner{FAULTS_ATTEMPT(nullptr, ZAL_Object_CreateFromcJSON(node))}) {
    FAULTS_REQUIRE(ZAL_Object_GetInternal(owner.get()) == node);
  } else {
    cJSON_Delete(node);  // it stayed ours
  }
  if (const Object object{FAULTS_ATTEMPT(nullptr, ZAL_Object_Create())}) {
    addLeaves(object.get());
    addBranches(object.get());
    print(object.get());
  }
}

void arrays() {
  const Array array{FAULTS_ATTEMPT(nullptr, ZAL_Array_Create())};
  if (!array) return;
  ZAL_ObjectHandle const to = array.get();
  int added = 0;
  added += FAULTS_ATTEMPT(0, ZAL_Array_AddString(to, "text"));
  added += FAULTS_ATTEMPT(0, ZAL_Array_AddNumber(to, 1));
  added += FAULTS_ATTEMPT(0, ZAL_Array_AddInt32(to, 1));
  added += FAULTS_ATTEMPT(0, ZAL_Array_AddUint32(to, 1));
  added += FAULTS_ATTEMPT(0, ZAL_Array_AddInt64(to, 1));
  added += FAULTS_ATTEMPT(0, ZAL_Array_AddUint64(to, 1));
  added += FAULTS_ATTEMPT(0, ZAL_Array_AddDouble(to, 1));
  added += FAULTS_ATTEMPT(0, ZAL_Array_AddBool(to, 1));
  added += FAULTS_ATTEMPT(0, ZAL_Array_AddJson(to, makeNode()));
  FAULTS_REQUIRE(sizeOf(to) == added);
  ZAL_Array_AddBlob(to, "bytes", 5);
  if (ZAL_ObjectHandle element = FAULTS_ATTEMPT(nullptr, ZAL_Array_AddObject(to))) addLeaves(element);
  if (ZAL_ObjectHandle element = FAULTS_ATTEMPT(nullptr, ZAL_Array_AddArray(to)))
    static_cast<void>(FAULTS_ATTEMPT(0, ZAL_Array_AddNumber(element, 1)));
  const Text text{FAULTS_ATTEMPT(nullptr, ZAL_Array_DumpOutput(to))};
  const int before = sizeOf(to);
  if (before > 1) FAULTS_REQUIRE(ZAL_Array_Prune(to, 1, -1) == 1 && sizeOf(to) == before - 1);
}

void filters() {
  FAULTS_REQUIRE(FAULTS_ATTEMPT(0, filterTest("svc?include=a/b+c", "svc/c", 1)) <= 1);
  FAULTS_REQUIRE(queryTestInclude("a/b+c", "", "c", 1) == 1);
  FAULTS_REQUIRE(queryTestExclude("a/b+c", "", "c") == 0);
  for (const char* filter : {"a?include=b", "a/b", "?exclude=c"}) {
    cJSON* node = makeNode(R"({"a":{"b":1,"c":{"d":[]}},"c":[1,2,{"e":1}]})");
    filterPruneTree(filter, node, &node, nullptr);
    cJSON_Delete(node);
  }
  if (const Object object{FAULTS_ATTEMPT(nullptr, ZAL_Object_Create())}) {
    FAULTS_REQUIRE(FAULTS_ATTEMPT(0, ZAL_Object_CheckFilter(object.get(), "key", 1)) <= 1);
    FAULTS_REQUIRE(FAULTS_ATTEMPT(0, checkFilter(object.get(), "key", 1)) <= 1);
  }
}

void messages() {
  const Message message{FAULTS_ATTEMPT(nullptr, ZAL_Message_Create())};
  if (!message) return;
  ZAL_MessageHandle const to = message.get();
  ZAL_Message_SetName(to, "name");
  FAULTS_REQUIRE(std::strcmp(ZAL_Message_GetName(to), "name") == 0);
  ZAL_Message_SetOptionalParam(to, "parameter");
  FAULTS_REQUIRE(std::strcmp(ZAL_Message_GetOptionalParam(to), "parameter") == 0);
  ZAL_Message_SetVersion(to, 2);
  FAULTS_REQUIRE(ZAL_Message_GetFilter(to) == nullptr);

  Object telemetry{FAULTS_ATTEMPT(nullptr, ZAL_TelemetryObject_Create(to))};
  if (telemetry) {
    static_cast<void>(FAULTS_ATTEMPT(0, ZAL_Object_AddString(telemetry.get(), "data", "Ynl0ZXM=")));
    const bool hasText = sizeOf(telemetry.get()) == 1;
    ZAL_Message_SetData(to, telemetry.release());
    const Text data{FAULTS_ATTEMPT(nullptr, ZAL_Message_DumpOutput(to))};
    std::uint8_t* bytes = nullptr;
    std::uint32_t size = 0;
    const std::uint64_t before = strikeCount();
    ZAL_Message_GetPayload(to, &bytes, &size);
    FAULTS_REQUIRE(size == 5 || !hasText || strikeCount() != before);
    FAULTS_REQUIRE((bytes != nullptr) == (size != 0));
  }
  if (Array list{FAULTS_ATTEMPT(nullptr, ZAL_TelemetryArray_Create(to))}) {
    static_cast<void>(FAULTS_ATTEMPT(0, ZAL_Array_AddNumber(list.get(), 1)));
    ZAL_Message_SetData(to, list.release());
    FAULTS_REQUIRE(ZAL_Message_GetData(to) != nullptr);
  }
  const Text data{FAULTS_ATTEMPT(nullptr, ZAL_Message_DumpOutput(to))};
  ZAL_Message_SetPayload(to, "bytes", 5);
  const Text payload{FAULTS_ATTEMPT(nullptr, ZAL_Message_DumpOutput(to))};
  ZAL_Message_SetError(to, 1, "source", "text");
  const Text error{FAULTS_ATTEMPT(nullptr, ZAL_Message_DumpOutput(to))};
}

namespace {

/// A member of every kind under filters that have to be looked at.
void addMembers(cJSON* top, const char* filter) {
  cJSON* const parent = FAULTS_ATTEMPT(nullptr, json_AddObject(top, filter, nullptr, top, "svc"));
  if (parent == nullptr) return;
  static_cast<void>(FAULTS_ATTEMPT(nullptr, json_AddString(parent, filter, nullptr, top, "t", "text")));
  static_cast<void>(FAULTS_ATTEMPT(nullptr, json_AddNumber(parent, filter, nullptr, top, "n", 1)));
  static_cast<void>(FAULTS_ATTEMPT(nullptr, json_AddBool(parent, filter, nullptr, top, "b", 1)));
  static_cast<void>(FAULTS_ATTEMPT(nullptr, json_AddNull(parent, filter, nullptr, top, "null")));
  static_cast<void>(FAULTS_ATTEMPT(nullptr, json_AddStringOrNull(parent, filter, nullptr, top, "tn", "")));
  static_cast<void>(FAULTS_ATTEMPT(nullptr, json_AddCountingNumberOrNull(parent, filter, nullptr, top, "c", 1)));
  cJSON* const list = FAULTS_ATTEMPT(nullptr, json_AddArray(parent, filter, nullptr, top, "list"));
  if (list == nullptr) return;
  static_cast<void>(FAULTS_ATTEMPT(nullptr, json_AddArrayElement(list)));
  static_cast<void>(FAULTS_ATTEMPT(nullptr, json_AddString(list, filter, nullptr, top, "keyed", "text")));
  static_cast<void>(json_AddNumber(list, filter, nullptr, top, nullptr, 1));  // null when it was appended, too
}

void clean(cJSON* top) {
  FAULTS_REQUIRE(FAULTS_ATTEMPT(0, json_CheckFilter(top, "svc", nullptr, top, "svc")) <= 1);
  FAULTS_REQUIRE(FAULTS_ATTEMPT(0, json_CheckFilterLoose(top, "svc?include=t", nullptr, top, "svc")) <= 1);
  FAULTS_REQUIRE(json_IsEmpty(top) == 0 || strikeCount() > 0);
  static_cast<void>(json_IsEmptyObjects(top));
  static_cast<void>(json_FindElement(top, "svc"));
  applyArrayRange(cJSON_GetObjectItem(cJSON_GetObjectItem(top, "svc"), "list"), "1:1");
  pruneRangePath(top, "svc/list", "0:1");
  json_PruneArrayRangeObjects(top, "svc/list?range=0:1");
  json_NullObject("n", top);
  json_PruneEmptyObjects(top, nullptr);
}

}  // namespace

void documents() {
  cJSON* top = FAULTS_ATTEMPT(nullptr, json_Initialize());
  if (top == nullptr) return;
  static_cast<void>(FAULTS_ATTEMPT(-1, json_GenerateHeader(top, nullptr, "text", nullptr, 1, R"({"meta":1})")));
  addMembers(top, nullptr);
  addMembers(top, "svc?include=t+n+b+null+tn+c+list");
  FAULTS_REQUIRE(jsonFilterTest("svc?include=t", "svc/t", 1) == 1);
  clean(top);
  std::array<char, 4096> text{};
  static_cast<void>(FAULTS_ATTEMPT(-1, json_Print(top, text.data(), text.size(), 1, 1)));
  static_cast<void>(FAULTS_ATTEMPT(-1, json_GenerateError(top, 1, "text")));
  static_cast<void>(json_CheckPluginError(top, "svc", 0, "", text.data(), text.size()));
  const timeval time{.tv_sec = 1, .tv_usec = 5};
  FAULTS_REQUIRE(json_FormatTimeval(&time, text.data(), text.size()) > 0);
  json_Uninitialize(&top);
  FAULTS_REQUIRE(top == nullptr);
}

}  // namespace faults
