// What the hot paths cost beside what they cannot cost less than. Ratios travel between machines, times do not.
#include <CLI/CLI.hpp>

#include <cstdio>

#include "bench/rows.h"

int main(int argc, char** argv) {
  CLI::App app("Compares the monitor's hot paths with their limits.", "monitor_bench");
  std::string strJson;
  app.add_option("--json", strJson, "write the rows to this file as well");
  std::string strOnly;
  app.add_option("--only", strOnly, "only the rows whose description contains this text");
  CLI11_PARSE(app, argc, argv);
  bench::Table table(strOnly);
  bench::InspectionRows(table);
  bench::LogRows(table);
  bench::JobRows(table);
#ifndef _WIN32
  bench::ToolRows(table);
#endif
  table.Print();
  if (!strJson.empty() && !table.WriteJson(strJson)) {
    std::fprintf(stderr, "monitor_bench: cannot write %s\n", strJson.c_str());
    return 2;
  }
  return table.AnyShort() ? 1 : 0;
}
