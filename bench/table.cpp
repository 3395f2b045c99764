#include "bench/table.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

namespace bench {
namespace {

constexpr int kRounds = 15;
constexpr double kRoundNs = 20e6;

double TimeOf(const std::function<void()>& work, std::uint64_t nTimes) {
  using namespace std::chrono;
  const auto start = steady_clock::now();
  for (std::uint64_t n = 0; n < nTimes; ++n) work();
  return static_cast<double>(duration_cast<nanoseconds>(steady_clock::now() - start).count()) /
         static_cast<double>(nTimes);
}

// How often a round repeats something that takes this long.
std::uint64_t Times(const std::function<void()>& work) {
  work();
  return std::max<std::uint64_t>(1, static_cast<std::uint64_t>(kRoundNs / std::max(1.0, TimeOf(work, 3))));
}

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

std::string Figure(double d, const std::string& strUnit) {
  char sz[32];
  if (strUnit == "ns" && d >= 1e6) {
    std::snprintf(sz, sizeof sz, "%.1f ms", d / 1e6);
  } else if (strUnit == "ns" && d >= 1e4) {
    std::snprintf(sz, sizeof sz, "%.1f us", d / 1e3);
  } else {
    std::snprintf(sz, sizeof sz, "%.4g %s", d, strUnit.c_str());
  }
  return sz;
}

std::string GoalText(const Row& row) {
  char sz[32];
  std::snprintf(sz, sizeof sz, "%s %.3g", row.goal == Goal::SpeedAtLeast ? ">=" : "<=", row.dGoal);
  return sz;
}

}  // namespace

void Table::Time(const std::string& strWhat, const std::string& strLimit, Goal goal, double dGoal,
                 const std::function<void()>& limit, const std::function<void()>& ours, double dPerCall) {
  if (!Wants(strWhat)) return;
  const std::uint64_t nLimit = Times(limit);
  const std::uint64_t nOurs = Times(ours);
  std::vector<double> limits;
  std::vector<double> own;
  std::vector<double> ratios;
  for (int n = 0; n < kRounds; ++n) {
    limits.push_back(TimeOf(limit, nLimit) / dPerCall);
    own.push_back(TimeOf(ours, nOurs) / dPerCall);
    ratios.push_back(goal == Goal::SpeedAtLeast ? limits.back() / own.back() : own.back() / limits.back());
  }
  Add({strWhat, strLimit, "ns", Median(limits), Median(own), Median(ratios), goal, dGoal});
}

void Table::Add(Row row) {
  if (!Wants(row.strWhat)) return;
  std::fprintf(stderr, "  %-58s %7.2f\n", row.strWhat.c_str(), row.dRatio);
  m_rows.push_back(std::move(row));
}

bool Table::AnyShort() const {
  return std::any_of(m_rows.begin(), m_rows.end(), [](const Row& row) { return row.Short(); });
}

void Table::Print() const {
  std::printf("%-58s %-44s %10s %10s %7s %8s\n", "what", "limit", "limit", "ours", "ratio", "goal");
  for (const Row& row : m_rows)
    std::printf("%-58s %-44s %10s %10s %7.2f %8s%s\n", row.strWhat.c_str(), row.strLimit.c_str(),
                Figure(row.dLimit, row.strUnit).c_str(), Figure(row.dOurs, row.strUnit).c_str(), row.dRatio,
                GoalText(row).c_str(), row.Short() ? "  short" : "");
}

bool Table::WriteJson(const std::string& strFile) const {
  nlohmann::json rows = nlohmann::json::array();
  for (const Row& row : m_rows)
    rows.push_back({{"what", row.strWhat},
                    {"limit", row.strLimit},
                    {"unit", row.strUnit},
                    {"limitValue", row.dLimit},
                    {"ours", row.dOurs},
                    {"ratio", row.dRatio},
                    {"goal", GoalText(row)},
                    {"short", row.Short()}});
  std::ofstream file(strFile);
  file << rows.dump(2) << '\n';
  return file.good();
}

}  // namespace bench
