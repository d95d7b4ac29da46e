// zalctl monitor: stands between clients and their agent, and prints what they say to each other.
#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "command.hpp"
#include "link.hpp"
#include "printer.hpp"
#include "proxy.hpp"
#include "recording.hpp"
#include "viewer.hpp"
#include "waiter.hpp"

namespace zalctl {
namespace {

struct Options {
  std::string url;
  std::string agent = kDefaultUrl;
  std::string file;
  ViewOptions view;
};

Status run(const Options& options) {
  if (options.url == options.agent) throw std::runtime_error{"--url is the place for clients, --agent another one"};
  Waiter waiter;
  Printer printer;
  std::optional<RecordingWriter> writer;
  if (!options.file.empty()) writer.emplace(options.file);
  Viewer viewer{printer, options.view};
  std::atomic<bool> hasFailed = false;
  const auto sink = [&](const Entry& entry) {
    viewer.show(entry);
    if (writer && !writer->write(entry)) hasFailed = true;
    if (hasFailed || printer.isBroken()) waiter.notify();
  };
  const auto complain = [&](const std::string& what) { printer.error(what); };
  const Proxy proxy{Address{options.url}, Address{options.agent}, sink, complain};
  if (!options.view.isJson) printer.print(Tone::kDim, "listening at " + printable(options.url));
  static_cast<void>(waiter.until(kForever, [&] { return hasFailed || printer.isBroken(); }));
  if (!hasFailed) return Status::kDone;
  printer.error("cannot write " + options.file);
  return Status::kUsage;
}

}  // namespace

Run declareMonitor(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  app.add_option("--url", options->url, "address where clients connect, file:///PATH or tcp://HOST:PORT")->required();
  app.add_option("--agent", options->agent, "address of their agent")->capture_default_str();
  app.add_option("--record", options->file, "record all that passes in this file, whatever is printed");
  app.add_flag("--json", options->view.isJson, "print JSON, one object a line");
  declareView(app, options->view);
  return [options] { return run(*options); };
}

}  // namespace zalctl
