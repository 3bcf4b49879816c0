#include "lab/oracle/finding.h"

namespace lab {
namespace {

struct Rule {
  const char* name;
  const char* message;
};

constexpr Rule kRules[] = {
#define X(enumerator, name, message) {name, message},
    SIM_CONTRADICTIONS(X) LAB_FINDINGS(X)
#undef X
};

}  // namespace

const char* FindingName(FindingRule rule) {
  return kRules[static_cast<unsigned>(rule)].name;
}

std::string Finding::Text() const {
  const Rule& entry = kRules[static_cast<unsigned>(rule)];
  return (domain.empty() ? "" : domain + ": ") + sim::FillFinding(entry.message, arguments) + " [" + entry.name + "]";
}

}  // namespace lab
