// From a format text and the caller's variables to a map. Memory for packed values is laid out here too: an area of its
// own for each item under the root, one slot for all items of an array's element.
#include "base/zal_tpl/rooms.hpp"

#include <limits>

namespace zal::tpl {
namespace {

constexpr int kLongestRun = 10;  // of '#' in a row
constexpr std::size_t kLargestArea = std::numeric_limits<std::ptrdiff_t>::max();

[[nodiscard]] bool multiply(std::size_t& product, std::size_t factor) noexcept {
  return !__builtin_mul_overflow(product, factor, &product) && product <= kLargestArea;
}

class Parser {
 public:
  Parser(tpl_map_node& map, Arguments& arguments) noexcept
      : map_{map}, arguments_{arguments}, next_{rootOf(map).format}, parent_{&map} {}

  [[nodiscard]] bool parse() noexcept {
    while (*next_ != '\0') {
      if (!take(*next_++)) return false;
    }
    return depth_ == 0;
  }

 private:
  /// What stands directly before a character, as far as ")" and '#' ask for it.
  enum class Before { other, opening, atom, structure };

  /// The structure that is open, or was last.
  struct Structure {
    bool isOpen = false;
    char* base = nullptr;
    int ordinal = 1;  // of the next member
    Type widest = Type::root;
    tpl_map_node* firstMember = nullptr;
    std::ptrdiff_t stride = 0;
  };

  [[nodiscard]] bool take(char symbol) noexcept;
  [[nodiscard]] bool addAtom(Type type) noexcept;
  [[nodiscard]] bool addArray() noexcept;
  [[nodiscard]] bool addBlob() noexcept;
  [[nodiscard]] bool openStructure() noexcept;
  [[nodiscard]] bool openNested() noexcept;
  [[nodiscard]] bool open() noexcept;
  [[nodiscard]] bool close(Before before) noexcept;
  [[nodiscard]] bool repeat(Before before) noexcept;
  [[nodiscard]] bool takeCounts(std::int32_t& product) noexcept;
  [[nodiscard]] bool repeatAtom(std::int32_t times) noexcept;
  [[nodiscard]] bool repeatStructure(std::int32_t times) noexcept;
  [[nodiscard]] bool reserve(tpl_map_node& item, std::size_t reserved, std::size_t size) noexcept;
  [[nodiscard]] char* memberAddress(Type type) noexcept;
  void noteMember(tpl_map_node& member) noexcept;

  tpl_map_node& map_;
  Arguments& arguments_;
  const char* next_;
  tpl_map_node* parent_;
  int depth_ = 0;        // of all parentheses
  int nestedDepth_ = 0;  // of the "$(" among them
  bool expectsParenthesis_ = false;
  Before before_ = Before::other;
  Structure structure_;
};

bool Parser::take(char symbol) noexcept {
  const Before before = std::exchange(before_, Before::other);
  switch (symbol) {
    case 'A':
      return addArray();
    case 'B':
      return addBlob();
    case 'S':
      return openStructure();
    case '$':
      return openNested();
    case '(':
      return open();
    case ')':
      return close(before);
    case '#':
      return repeat(before);
    default:
      break;
  }
  if (const auto type = atomOf(symbol)) return addAtom(*type);
  tpl_hook.report_fn("unsupported option %c\n", symbol);
  return false;
}

bool Parser::addAtom(Type type) noexcept {
  if (expectsParenthesis_) return false;
  char* address = structure_.isOpen ? memberAddress(type) : va_arg(arguments_.list, char*);
  tpl_map_node& atom = appendNode(*parent_, type);
  atom.address = address;
  if (structure_.isOpen) noteMember(atom);
  before_ = Before::atom;
  return reserve(atom, 0, storedSize(atom));
}

bool Parser::addArray() noexcept {
  if (structure_.isOpen) return false;
  tpl_map_node& array = appendArray(map_, *parent_);
  const bool fits = isRoot(parent_) || reserve(array, 0, storedSize(array));
  parent_ = &array;
  expectsParenthesis_ = true;
  return fits;
}

bool Parser::addBlob() noexcept {
  if (structure_.isOpen || expectsParenthesis_) return false;
  tpl_map_node& blob = appendNode(*parent_, Type::blob);
  blob.address = va_arg(arguments_.list, tpl_blob*);
  return reserve(blob, 0, storedSize(blob));
}

bool Parser::openStructure() noexcept {
  if (structure_.isOpen) return false;
  structure_ = {};
  structure_.isOpen = true;
  structure_.base = va_arg(arguments_.list, char*);
  expectsParenthesis_ = true;
  return true;
}

bool Parser::openNested() noexcept {
  if (!structure_.isOpen) return false;
  ++nestedDepth_;
  expectsParenthesis_ = true;
  return true;
}

bool Parser::open() noexcept {
  if (!expectsParenthesis_) return false;
  expectsParenthesis_ = false;
  ++depth_;
  before_ = Before::opening;
  return true;
}

bool Parser::close(Before before) noexcept {
  if (depth_ == 0 || before == Before::opening) return false;
  --depth_;
  if (nestedDepth_ > 0) {
    --nestedDepth_;
  } else if (structure_.isOpen) {
    structure_.stride = memberAddress(structure_.widest) - structure_.base;
    structure_.isOpen = false;
    before_ = Before::structure;
  } else {
    // Every "(" belongs to one 'A', 'S' or '$', so what is left to close is an array.
    ZAL_INVARIANT(parent_->type == Type::array);
    parent_ = parent_->parent;
  }
  return true;
}

// Only an atom and a structure can be repeated; the counts of a '#' that stands elsewhere are not even read.
bool Parser::repeat(Before before) noexcept {
  const bool repeatsStructure = before == Before::structure && structure_.firstMember != nullptr;
  if (before != Before::atom && !repeatsStructure) return false;
  std::int32_t product = 1;
  if (!takeCounts(product)) return false;
  return repeatsStructure ? repeatStructure(product) : repeatAtom(product);
}

bool Parser::takeCounts(std::int32_t& product) noexcept {
  tpl_map_root& root = rootOf(map_);
  for (int run = 1;; ++run, ++next_) {  // the first '#' has been taken
    if (run > kLongestRun) ZAL_TPL_FATAL("contiguous # exceeds hardcoded limit\n");
    const int count = va_arg(arguments_.list, int);
    if (count < 1) ZAL_TPL_FATAL("non-positive iteration count %d\n", count);
    root.counts[root.countTotal++] = count;
    map_.serializedSize += sizeof(std::uint32_t);
    if (__builtin_mul_overflow(product, count, &product)) return false;
    if (*next_ != '#') return true;
  }
}

bool Parser::repeatAtom(std::int32_t times) noexcept {
  tpl_map_node& atom = *parent_->children->prev;
  ZAL_INVARIANT(atom.num == 1 && sizeOf(atom.type) != 0);
  const std::size_t reserved = storedSize(atom);
  std::size_t size = reserved;
  if (!multiply(size, static_cast<std::size_t>(times))) return false;
  atom.num = times;
  return reserve(atom, reserved, size);
}

bool Parser::repeatStructure(std::int32_t times) noexcept {
  if (structure_.stride < 1 || !std::in_range<std::int32_t>(structure_.stride)) return false;
  for (tpl_map_node* member = structure_.firstMember; member != nullptr; member = member->next) {
    std::size_t size = storedSize(*member);
    if (!multiply(size, static_cast<std::size_t>(times))) return false;
    if (!reserve(*member, storedSize(*member), size)) return false;
  }
  auto* state = make<tpl_repeat_state>();
  *state = {.stride = static_cast<std::int32_t>(structure_.stride), .firstMember = structure_.firstMember};
  tpl_map_node& node = appendNode(*parent_, Type::repeat);
  node.num = times;
  node.data = state;
  return true;
}

/// Gives an item `size` bytes for its packed values, `reserved` of which it has already.
bool Parser::reserve(tpl_map_node& item, std::size_t reserved, std::size_t size) noexcept {
  if (!isRoot(item.parent)) {
    std::size_t& slotSize = arrayOf(*item.parent).slotSize;
    ZAL_INVARIANT(reserved <= size && reserved <= slotSize);
    if (size - reserved > kLargestArea - slotSize) return false;
    slotSize += size - reserved;
    return true;
  }
  release(std::exchange(item.data, nullptr));
  item.data = allocateZeroed(size);
  return true;
}

char* Parser::memberAddress(Type type) noexcept {
  return fieldAddress(*parent_, type, structure_.base, structure_.ordinal++);
}

void Parser::noteMember(tpl_map_node& member) noexcept {
  if (structure_.firstMember == nullptr) structure_.firstMember = &member;
  if (sizeOf(member.type) > sizeOf(structure_.widest)) structure_.widest = member.type;
}

}  // namespace

char* fieldAddress(const tpl_map_node& parent, Type type, char* base, int ordinal) noexcept {
  if (ordinal == 1 || parent.children == nullptr) return base;
  const tpl_map_node& previous = *parent.children->prev;
  const std::size_t alignment = std::max<std::size_t>(sizeOf(type), 1);
  const auto start = static_cast<std::size_t>(static_cast<char*>(previous.address) - base);
  const std::size_t end = start + sizeOf(previous.type) * static_cast<std::size_t>(previous.num);
  return base + (end + alignment - 1) / alignment * alignment;
}

tpl_map_node* mapFormat(const char* format, Arguments& arguments) noexcept {
  if (format == nullptr) {
    tpl_hook.report_fn("failed to parse %s\n", "(null)");
    return nullptr;
  }
  MapPtr map{newMap(format)};
  if (Parser{*map, arguments}.parse()) return map.release();
  tpl_hook.report_fn("failed to parse %s\n", format);
  return nullptr;
}

}  // namespace zal::tpl
