// zalctl decode: prints what a recording or a capture holds.
#include <iostream>
#include <iterator>
#include <memory>
#include <string>

#include "command.hpp"
#include "printer.hpp"
#include "recording.hpp"
#include "viewer.hpp"
#include "wire.hpp"

namespace zalctl {
namespace {

struct Options {
  ViewOptions view;
  std::string file = "-";
  bool isText = false;
};

Status run(const Options& options) {
  const bool isInput = options.file == "-";
  const std::string bytes =
      isInput ? std::string{std::istreambuf_iterator<char>{std::cin}, {}} : readFile(options.file);
  Printer printer;
  ViewOptions view = options.view;
  view.isJson = !options.isText;
  Viewer viewer{printer, view};
  const bool isClean = readEntries(bytes, [&](const Entry& entry) { viewer.show(entry); });
  if (!isClean) printer.error("not all of it could be understood");
  return isClean ? Status::kDone : Status::kUsage;
}

}  // namespace

Run declareDecode(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  app.add_option("FILE", options->file,
                 "a recording of zalctl monitor, or the bytes of a connection; - for standard input")
      ->capture_default_str();
  app.add_flag("--text", options->isText, "print for people instead of JSON, one object a line");
  declareView(app, options->view);
  return [options] { return run(*options); };
}

}  // namespace zalctl
