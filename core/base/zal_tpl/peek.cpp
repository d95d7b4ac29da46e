// A look into an image without a map. The image may be anything: only its header, the length of its format and of its
// counts are relied on, once they have been found to fit.
#include "base/zal_tpl/rooms.hpp"

namespace zal::tpl {
namespace {

/// What is asked for besides the format.
struct Request {
  std::uint32_t* countTotal = nullptr;
  std::uint32_t** counts = nullptr;
  const char* values = nullptr;  // the peek format
};

Request takeRequest(int mode, Arguments& arguments) noexcept {
  Request request;
  if ((mode & TPL_FXLENS) != 0) {
    request.countTotal = va_arg(arguments.list, std::uint32_t*);
    request.counts = va_arg(arguments.list, std::uint32_t**);
    *request.countTotal = 0;
    *request.counts = nullptr;
  } else if ((mode & TPL_DATAPEEK) != 0) {
    request.values = va_arg(arguments.list, const char*);
  }
  return request;
}

void storeCounts(Reader reader, std::uint32_t total, const Request& request) noexcept {
  *request.countTotal = total;
  if (total == 0) return;
  char* counts = allocate(total * sizeof(std::uint32_t));
  copyValues(counts, reader.position(), total, sizeof(std::uint32_t), reader.crossEndian());
  *request.counts = reinterpret_cast<std::uint32_t*>(counts);
}

/// Reads one value into `variable`, or only steps over it when that is null.
[[nodiscard]] bool readValue(char symbol, void* variable, Reader& reader) noexcept {
  if (symbol == 's') {
    const auto text = reader.text();
    if (text && variable != nullptr) storeAt(variable, copyOf(*text));
    return text.has_value();
  }
  const std::size_t size = sizeOf(*atomOf(symbol));
  const char* bytes = reader.take(size);
  if (bytes != nullptr && variable != nullptr) copyValues(variable, bytes, 1, size, reader.crossEndian());
  return bytes != nullptr;
}

/// Measures all values before it stores the first: the caller gets every one or none.
[[nodiscard]] bool peekValues(std::string_view format, Reader data, const char* wanted, Arguments& arguments) noexcept {
  const std::string_view symbols{wanted};
  if (symbols.find_first_not_of("iucsfIUjv") != std::string_view::npos) {
    tpl_hook.report_fn("invalid TPL_DATAPEEK format: %s\n", wanted);
    return false;
  }
  format.remove_prefix(std::min(format.find_first_not_of("S()"), format.size()));
  if (!format.starts_with(symbols)) {
    tpl_hook.report_fn("TPL_DATAPEEK format mismatches tpl iamge\n");
    return false;
  }
  Reader probe = data;
  if (!std::all_of(symbols.begin(), symbols.end(), [&](char symbol) { return readValue(symbol, nullptr, probe); })) {
    tpl_hook.report_fn("tpl_peek: tpl has insufficient length\n");
    return false;
  }
  return std::all_of(symbols.begin(), symbols.end(),
                     [&](char symbol) { return readValue(symbol, va_arg(arguments.list, void*), data); });
}

HookPtr<char> peekImage(std::string_view image, const Request& request, Arguments& arguments) noexcept {
  const auto header = readHeader(image);
  if (!header || header->length != image.size()) return nullptr;
  image.remove_prefix(kHeaderSize);
  const std::size_t end = image.find('\0');
  if (end == std::string_view::npos) return nullptr;
  const std::string_view format = image.substr(0, end);
  const auto total = static_cast<std::uint32_t>(std::count(format.begin(), format.end(), '#'));
  Reader data{image.substr(end + 1), header->encoding};
  const Reader counts = data;
  if (!data.skip(total, sizeof(std::uint32_t))) return nullptr;

  HookPtr<char> copy{copyOf(format)};
  if (request.counts != nullptr) storeCounts(counts, total, request);
  if (request.values != nullptr && !peekValues(format, data, request.values, arguments)) return nullptr;
  return copy;
}

}  // namespace

char* peek(int mode, Arguments& arguments) noexcept {
  if ((mode & TPL_FXLENS) != 0 && (mode & TPL_DATAPEEK) != 0) {
    tpl_hook.report_fn("TPL_FXLENS and TPL_DATAPEEK mutually exclusive\n");
    return nullptr;
  }
  if ((mode & TPL_VIA_FILE) != 0) {
    const char* path = va_arg(arguments.list, const char*);
    const Request request = takeRequest(mode, arguments);
    tpl_image_record image;
    if (!mapFile(path, image)) {
      tpl_hook.report_fn("tpl_peek failed for file %s\n", path);
      return nullptr;
    }
    HookPtr<char> format = peekImage(bytesOf(image), request, arguments);
    unmapFile(image);
    return format.release();
  }
  if ((mode & TPL_VIA_MEM) != 0) {
    const char* address = va_arg(arguments.list, const char*);
    const auto size = va_arg(arguments.list, std::size_t);
    return peekImage({address, size}, takeRequest(mode, arguments), arguments).release();
  }
  tpl_hook.report_fn("unsupported tpl_peek mode %d\n", mode);
  return nullptr;
}

}  // namespace zal::tpl
