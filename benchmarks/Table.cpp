#include "Table.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace veltrane::sceneutils::benchmarks {

Table::Table(std::vector<std::string> columns) : _rows{std::move(columns)} {}

Table& Table::row() {
    _rows.emplace_back();
    return *this;
}

Table& Table::cell(const std::string& text) {
    _rows.back().push_back(text);
    return *this;
}

Table& Table::cell(double number, int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << number;
    return cell(text.str());
}

void Table::print(std::ostream& out) const {
    std::vector<std::size_t> widths(_rows.front().size(), 0);
    for (const auto& row : _rows) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    for (const auto& row : _rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            out << (i == 0 ? "" : "  ") << std::setw(static_cast<int>(widths[i])) << row[i];
        }
        out << "\n";
    }
}

void Table::writeCsv(std::ostream& out) const {
    for (const auto& row : _rows) {
        for (std::size_t i = 0; i < row.size(); ++i) out << (i == 0 ? "" : ",") << row[i];
        out << "\n";
    }
}

}  // namespace veltrane::sceneutils::benchmarks
