// Facts, one to a line, their values below each other.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace tool {

class LabelledLines {
public:
    /// A label without its colon. An empty one goes on with what the line above tells of.
    void add(const std::string& label, const std::string& value) { lines_.emplace_back(label, value); }
    /// Prints them; the widest label makes the column.
    void print(FILE* stream) const;

private:
    std::vector<std::pair<std::string, std::string>> lines_;
};

}  // namespace tool
