// The rules that the documentation promises.
#pragma once

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace erps::lab::testing {

struct DocumentedRule {
  std::string severity;
  bool of_topologies = false;
  bool of_daemons = false;
};

// From the rows "| `rule` | severity | T D | ..." of docs/laboratory.md.
inline std::map<std::string, DocumentedRule> documented_rules() {
  std::map<std::string, DocumentedRule> rules;
  std::ifstream docs(ERPS_LABORATORY_DOCS);
  for (std::string line; std::getline(docs, line);) {
    std::vector<std::string> cells;
    std::istringstream row(line);
    for (std::string cell; std::getline(row, cell, '|');) {
      cells.push_back(cell);
    }
    if (line.rfind("| `", 0) != 0 || cells.size() != 5) {
      continue;
    }
    const std::string& name = cells[1];
    const std::string& in = cells[3];
    rules[name.substr(2, name.size() - 4)] = {cells[2], in.find('T') != std::string::npos,
                                              in.find('D') != std::string::npos};
  }
  return rules;
}

}  // namespace erps::lab::testing
