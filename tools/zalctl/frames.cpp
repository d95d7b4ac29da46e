#include "frames.hpp"

#include <array>
#include <cstdarg>
#include <cstdio>

#include "printer.hpp"

namespace zalctl {
namespace {

struct Delivery {
  const Frames::OnImage& onImage;
  std::size_t bytes = 0;
};

int deliver(void* image, std::size_t length, void* data) noexcept {
  auto& delivery = *static_cast<Delivery*>(data);
  delivery.bytes += length;
  delivery.onImage({static_cast<const char*>(image), length});
  return 0;
}

ZAL_PRINTF_LIKE(1, 2) int reportPrintable(const char* format, ...) {
  std::array<char, 512> text{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  std::string_view line{text.data()};
  if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
  return std::fprintf(stderr, "%s\n", printable(line).c_str());
}

}  // namespace

std::size_t Frames::pending() const {
  return state_ != nullptr ? static_cast<std::size_t>(state_->length) : 0;
}

std::size_t Frames::feed(std::string_view bytes, const OnImage& onImage) {
  const std::size_t known = pending() + bytes.size();
  Delivery delivery{onImage};
  const int result = tpl_gather(TPL_GATHER_FROM_MEM, bytes.data(), bytes.size(), &state_, deliver, &delivery);
  if (result == 1 && pending() <= maxImage_) return 0;
  forget();
  return known - delivery.bytes;
}

void Frames::forget() {
  if (state_ == nullptr) return;
  tpl_hook.free_fn(state_->bytes);
  tpl_hook.free_fn(state_);
  state_ = nullptr;
}

void printEngineReports() {
  tpl_hook.report_fn = reportPrintable;
}

}  // namespace zalctl
