#include "news.hpp"

namespace zalctl {

NewsSink showing(Printer& printer) {
  return [&printer](const News& news) {
    if (news.line.empty()) return;
    printer.print(news.tone, news.line, news.hasBody ? payloadText(news.record->payload) : std::string{});
  };
}

}  // namespace zalctl
