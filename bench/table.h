// The table of the benchmarks: each row compares what the product does with a limit that is measured in the same run.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

enum class Goal {
  SpeedAtLeast,  // limit's time / our time
  TimesAtMost,   // our time / limit's time
};

struct Row {
  std::string strWhat;
  std::string strLimit;
  std::string strUnit;  // of the two figures
  double dLimit = 0;
  double dOurs = 0;
  double dRatio = 0;
  Goal goal = Goal::TimesAtMost;
  double dGoal = 0;
  bool Short() const { return goal == Goal::SpeedAtLeast ? dRatio < dGoal : dRatio > dGoal; }
};

class Table {
 public:
  // strOnly: rows whose description does not contain this text are left out.
  explicit Table(std::string strOnly = {}) : m_strOnly(std::move(strOnly)) {}

  bool Wants(std::string_view what) const { return what.find(m_strOnly) != std::string_view::npos; }

  // Times both in turn, several rounds of some 20 ms each, and takes the median of the rounds' ratios: the machine's speed may
  // drift. Each of the two does its work once a call; nPerCall units of work count as one figure.
  void Time(const std::string& strWhat, const std::string& strLimit, Goal goal, double dGoal,
            const std::function<void()>& limit, const std::function<void()>& ours, double dPerCall = 1);
  // A row of figures that were measured some other way.
  void Add(Row row);

  void Print() const;
  bool WriteJson(const std::string& strFile) const;
  bool AnyShort() const;

 private:
  const std::string m_strOnly;
  std::vector<Row> m_rows;
};

}  // namespace bench
