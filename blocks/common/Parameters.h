// A block's numbered parameters, and the list of them that is parameter 0.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace zelk::blocks {

/// One parameter: a number within a range, or, with `text`, a read-only text.
struct Parameter {
  unsigned int id;   ///< from 1 on
  std::string name;  ///< without blanks
  std::string unit;  ///< without blanks; "-" for none
  double min;
  double max;
  double initial;
  std::function<double()> get;
  std::function<int(double)> set;  ///< value within range; 0 or negative; empty for read-only
  std::function<std::vector<std::string>()> text = {};  ///< instead of `get`
};

/// The table behind `Block::SetParameter` and `Block::GetParameter`. [route-thread]
class Parameters {
 public:
  void Add(Parameter parameter) { table.push_back(std::move(parameter)); }

  /// Sets parameter `id` from exactly one number. -20, and the reason in `error`, for an unknown or
  /// read-only parameter and for words that do not fit; else the setter's result.
  int Set(unsigned int id, const std::vector<std::string>& words, std::string& error);

  /// Replaces `words` by the value of parameter `id`; parameter 0 lists one text per parameter:
  /// "id name unit min max default value", "-" for what a text does not have. -20 for an unknown
  /// one, which leaves `words` alone.
  int Get(unsigned int id, std::vector<std::string>& words, std::string& error) const;

 private:
  const Parameter* Find(unsigned int id) const;

  std::vector<Parameter> table;
};

}  // namespace zelk::blocks
