#include "common/Parameters.h"

#include "common/Arguments.h"

namespace zelk::blocks {
namespace {

constexpr int FAILED = -20;

std::vector<std::string> Value(const Parameter& p) {
  return p.text ? p.text() : std::vector<std::string>{FormatNumber(p.get())};
}

std::string Describe(const Parameter& p) {
  std::string line = std::to_string(p.id) + ' ' + p.name + ' ' + p.unit + ' ';
  if (p.text)
    line += "- - -";
  else
    line += FormatNumber(p.min) + ' ' + FormatNumber(p.max) + ' ' + FormatNumber(p.initial);
  const auto value = Value(p);
  return line + ' ' + (value.empty() || value.front().empty() ? "-" : value.front());
}

}  // namespace

int Parameters::Set(unsigned int id, const std::vector<std::string>& words, std::string& error) {
  const Parameter* p = Find(id);
  if (!p || !p->set) {
    error = "parameter " + std::to_string(id) + (p || id == 0 ? " is read-only" : " is unknown");
    return FAILED;
  }
  const auto value = words.size() == 1 ? ParseNumber(words[0], p->min, p->max) : std::nullopt;
  if (!value) {
    error = p->name + " takes one number from " + FormatNumber(p->min) + " to " +
            FormatNumber(p->max) + ", not \"";
    for (const auto& word : words)
      error += (&word == &words.front() ? "" : " ") + word;
    error += '"';
    return FAILED;
  }
  const int ret = p->set(*value);
  if (ret < 0) error = p->name + " cannot be " + FormatNumber(*value) + " now";
  return ret;
}

int Parameters::Get(unsigned int id, std::vector<std::string>& words, std::string& error) const {
  if (id == 0) {
    words.clear();
    for (const auto& p : table)
      words.push_back(Describe(p));
    return 0;
  }
  const Parameter* p = Find(id);
  if (!p) {
    error = "parameter " + std::to_string(id) + " is unknown";
    return FAILED;
  }
  words = Value(*p);
  return 0;
}

const Parameter* Parameters::Find(unsigned int id) const {
  for (const auto& p : table)
    if (p.id == id) return &p;
  return nullptr;
}

}  // namespace zelk::blocks
