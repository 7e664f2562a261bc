#include "ui/labelled_lines.h"

#include <algorithm>

#include "ui/text_columns.h"

namespace tool {

void LabelledLines::print(FILE* stream) const {
    size_t widest = 0;
    for (const auto& [label, value] : lines_)
        widest = std::max(widest, columns_of(label) + 1);
    for (const auto& [label, value] : lines_)
        std::fprintf(stream, "%s %s\n", padded(label.empty() ? "" : label + ":", widest).c_str(), value.c_str());
}

}  // namespace tool
