// Random documents under random filters, on both sides of the data model, against a model that works on lists of keys.
#include <gtest/gtest.h>
#include <zal/zal_json.h>
#include <zal/zal_object.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/zal_message.hpp"
#include "support/memory.hpp"
#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace zal::test;
using Keys = std::vector<std::string>;

struct Document {
  enum class Kind { kNumber, kObject, kArray } kind = Kind::kNumber;
  std::vector<std::pair<std::string, Document>> children = {};  // the keys of elements are empty
};

struct Slice {
  int first;  // -1: none
  int count;  // -1: none
};

struct Filter {
  Keys path;
  std::vector<Keys> includes;
  std::vector<Keys> excludes;
};

class Dice {
 public:
  int upTo(int most) { return static_cast<int>(engine_() % static_cast<unsigned>(most + 1)); }
  std::string key() { return std::vector<std::string>{"a", "b", "ab", "c"}[static_cast<std::size_t>(upTo(3))]; }
  Keys keys(int least, int most) {
    Keys keys(static_cast<std::size_t>(least + upTo(most - least)));
    for (std::string& each : keys) each = key();
    return keys;
  }
  std::vector<Keys> paths() {
    std::vector<Keys> paths(upTo(1) != 0 ? static_cast<std::size_t>(1 + upTo(1)) : 0);
    for (Keys& path : paths) path = keys(1, 2);
    return paths;
  }
  Document document(Document::Kind kind, int levels) {
    Document made{kind};
    for (int i = kind == Document::Kind::kNumber ? 0 : upTo(4); i > 0; --i) {
      const auto below = levels == 0 ? Document::Kind::kNumber : static_cast<Document::Kind>(upTo(2));
      std::string name = kind == Document::Kind::kObject ? key() : "";
      made.children.emplace_back(std::move(name), document(below, levels - 1));
    }
    return made;
  }

 private:
  std::mt19937 engine_{20240131};  // the same numbers on every machine
};

std::string join(const Keys& keys) {
  std::string text;
  for (const std::string& key : keys) text += (text.empty() ? "" : "/") + key;
  return text;
}

std::string print(const Document& document) {
  if (document.kind == Document::Kind::kNumber) return "1";
  const bool isObject = document.kind == Document::Kind::kObject;
  std::string text;
  for (const auto& [key, child] : document.children)
    text += (text.empty() ? "" : ",") + (isObject ? "\"" + key + "\":" : "") + print(child);
  return isObject ? "{" + text + "}" : "[" + text + "]";
}

bool isPrefix(const Keys& shorter, const Keys& longer) {
  return shorter.size() <= longer.size() && std::equal(shorter.begin(), shorter.end(), longer.begin());
}

bool matches(const Keys& path, const Keys& member, bool isLeaf) {
  return isPrefix(path, member) || (!isLeaf && isPrefix(member, path));
}

Keys operator+(Keys keys, const Keys& more) {
  keys.insert(keys.end(), more.begin(), more.end());
  return keys;
}

bool isNamed(const std::vector<Keys>& paths, const Keys& above, const Keys& member, bool isLeaf) {
  return std::any_of(paths.begin(), paths.end(),
                     [&](const Keys& path) { return matches(above + path, member, isLeaf); });
}

bool objectSidePasses(const Filter& filter, const Keys& member, bool isLeaf) {
  return matches(filter.path, member, isLeaf) &&
         (filter.includes.empty() || isNamed(filter.includes, filter.path, member, isLeaf)) &&
         !isNamed(filter.excludes, filter.path, member, true);
}

bool documentSidePasses(const Filter& filter, const Keys& member, bool isLeaf) {
  if (!filter.includes.empty()) return isNamed(filter.includes, filter.path, member, isLeaf);
  if (!filter.excludes.empty()) return !isNamed(filter.excludes, filter.path, member, true);
  const std::string path = join(filter.path);
  const std::string name = join(member);
  const std::size_t common = std::min(path.size(), name.size());
  return isLeaf ? isPrefix(filter.path, member) : path.substr(0, common) == name.substr(0, common);
}

template <class Passes>
Document narrow(const Document& document, const Filter& filter, const Keys& above, Passes passes) {
  Document left{document.kind};
  for (const auto& [key, child] : document.children) {
    const Keys member = key.empty() ? above : above + Keys{key};
    if (key.empty() || passes(filter, member, child.kind == Document::Kind::kNumber))
      left.children.emplace_back(key, narrow(child, filter, member, passes));
  }
  return left;
}

void cut(Document& document, const Keys& way, std::size_t step, Slice slice) {
  auto& children = document.children;
  if (step == way.size()) {
    if (document.kind != Document::Kind::kArray) return;
    const int size = static_cast<int>(children.size());
    const int first = slice.first >= 0 ? std::min(slice.first, size) : size - std::min(slice.count, size);
    const int count = slice.count >= 0 ? std::min(slice.count, size - first) : size - first;
    children = {children.begin() + first, children.begin() + first + count};
    return;
  }
  const auto enter = [&](Document& object) {
    for (auto& [key, child] : object.children)
      if (key == way[step]) return cut(child, way, step + 1, slice), true;
    return false;
  };
  if (document.kind != Document::Kind::kArray) return static_cast<void>(enter(document));
  bool isFound = false;
  for (auto& element : children) isFound = enter(element.second) || isFound;
  if (!isFound && step + 1 < way.size()) cut(document, way, step + 1, slice);
}

/// Builds the document with `addNumber` and `addBelow`, which get a node and the key of what they add to it.
template <class Node, class AddNumber, class AddBelow>
void build(const Document& document, Node node, AddNumber addNumber, AddBelow addBelow) {
  for (const auto& [key, child] : document.children) {
    const char* name = key.empty() ? nullptr : key.c_str();
    if (child.kind == Document::Kind::kNumber) {
      addNumber(node, name);
    } else if (Node below = addBelow(node, name, child.kind == Document::Kind::kObject)) {
      build(child, below, addNumber, addBelow);
    }
  }
}

std::string documentSide(const Document& document, const char* filter) {
  const zal::JsonPtr top{cJSON_CreateObject()};
  build(
      document, top.get(),
      [&](cJSON* node, const char* key) { json_AddNumber(node, filter, filter, top.get(), key, 1); },
      [&](cJSON* node, const char* key, bool isObject) {
        if (key != nullptr) return (isObject ? json_AddObject : json_AddArray)(node, filter, nullptr, top.get(), key);
        if (isObject) return json_AddArrayElement(node);
        cJSON_AddItemToArray(node, cJSON_CreateArray());
        return node->child->prev;
      });
  return take(cJSON_PrintUnformatted(top.get()));
}

std::string objectSide(const Document& document, const char* filter) {
  ZAL_MessageHandle message = ZAL_Message_Create();
  zal::setMessageFilter(message, filter);
  const HandlePtr top{ZAL_TelemetryObject_Create(message)};
  ZAL_Message_Destroy(message);
  build(
      document, top.get(), [](ZAL_ObjectHandle node, const char* key) { ZAL_Object_AddInt32(node, key, 1); },
      [](ZAL_ObjectHandle node, const char* key, bool isObject) {
        if (key == nullptr) return (isObject ? ZAL_Array_AddObject : ZAL_Array_AddArray)(node);
        return (isObject ? ZAL_Object_AddObject : ZAL_Object_AddArray)(node, key);
      });
  return textOf(top.get());
}

std::string joinPaths(const char* name, const std::vector<Keys>& paths) {
  std::string text;
  for (const Keys& path : paths) text += (text.empty() ? name : "+") + join(path);
  return text;
}

TEST(FilterModel, AgreesWithBothSidesOnRandomDocuments) {
  Dice dice;
  for (int round = 0; round < 3000; ++round) {
    const Document document = dice.document(Document::Kind::kObject, 3);
    const Filter filter{dice.keys(0, 2), dice.paths(), dice.paths()};
    const std::string text =
        join(filter.path) + "?" + joinPaths("include=", filter.includes) + "&" + joinPaths("exclude=", filter.excludes);
    SCOPED_TRACE(text + " of " + print(document));

    ASSERT_EQ(documentSide(document, text.c_str()), print(narrow(document, filter, {}, documentSidePasses)));
    ASSERT_EQ(objectSide(document, text.c_str()), print(narrow(document, filter, {}, objectSidePasses)));
  }
}

TEST(FilterModel, AgreesOnTheRangesOfRandomDocuments) {
  Dice dice;
  const LogCapture errors;  // paths that lead nowhere
  for (int round = 0; round < 3000; ++round) {
    Document document = dice.document(static_cast<Document::Kind>(1 + dice.upTo(1)), 3);
    const Keys way = dice.keys(0, 3);
    const Slice slice{dice.upTo(3) - 1, dice.upTo(3) - 1};
    if (slice.first < 0 && slice.count < 0) continue;
    const auto number = [](int value) { return value < 0 ? std::string{"-1"} : std::to_string(value); };
    const std::string request = join(way) + "?range=" + number(slice.first) + ":" + number(slice.count);
    SCOPED_TRACE(request + " of " + print(document));

    const zal::JsonPtr parsed{cJSON_Parse(print(document).c_str())};
    json_PruneArrayRangeObjects(parsed.get(), request.c_str());
    cut(document, way, 0, slice);
    ASSERT_EQ(take(cJSON_PrintUnformatted(parsed.get())), print(document));
  }
}

}  // namespace
