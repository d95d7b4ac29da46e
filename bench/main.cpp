// zal_bench: measures the library beside what a user might pick instead, and beside code written by hand.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "suites.hpp"

int main(int argc, char** argv) {
  using Suite = void (*)(const bench::Settings&, bench::Report&);
  const std::map<std::string, Suite> suites = {
      {"starts", bench::measureStarts},   {"requests", bench::measureRequests},
      {"events", bench::measureEvents},   {"documents", bench::measureDocuments},
      {"base64", bench::measureBase64},   {"processes", bench::measureProcesses},
      {"filters", bench::measureFilters}, {"log", bench::measureLog},
      {"answers", bench::measureAnswers}, {"gather", bench::measureGather},
      {"records", bench::measureRecords}, {"growth", bench::measureGrowth},
  };

  bench::Settings settings;
  std::vector<std::string> chosen;
  std::string baseline;
  std::string output;
  CLI::App app{"Measures libzal-client. Ratios refer to the first line of each table, taken inside each round."};
  app.add_option("suites", chosen, "What to measure; everything without one")->check(CLI::IsMember(suites));
  app.add_option("--rounds", settings.rounds, "Rounds of a table")->check(CLI::Range(1, 1000))->capture_default_str();
  app.add_option("--effort", settings.effort, "Work of a round, 1 for the usual")
      ->check(CLI::Range(0.001, 1000.0))
      ->capture_default_str();
  app.add_option("--baseline", baseline, "Ratios of an earlier run to compare with");
  app.add_option("--output", output, "Where to write the ratios");
  CLI11_PARSE(app, argc, argv);

  try {
    settings.programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    bench::Report report;
    for (const auto& [name, measure] : suites)
      if (chosen.empty() || std::find(chosen.begin(), chosen.end(), name) != chosen.end()) measure(settings, report);
    if (!baseline.empty()) report.compareWith(baseline);
    if (!output.empty()) report.save(output);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zal_bench: %s\n", e.what());
    return 1;
  }
}
