#include "Table.h"

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace veltrane::sceneutils::benchmarks {

namespace {

std::string csvCell(const std::string& text) {
    if (text.find_first_of(",\"") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
    return quoted + "\"";
}

}  // namespace

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
        for (std::size_t i = 0; i < row.size(); ++i) out << (i == 0 ? "" : ",") << csvCell(row[i]);
        out << "\n";
    }
}

void showTables(const std::vector<TitledTable>& tables, const std::string& csv) {
    for (const TitledTable& shown : tables) {
        if (&shown != &tables.front()) std::cout << "\n";
        if (!shown.title.empty()) std::cout << shown.title << ":\n";
        shown.table.print(std::cout);
    }
    if (csv.empty()) return;
    std::ofstream out(csv);
    for (const TitledTable& written : tables) {
        if (&written != &tables.front()) out << "\n";
        written.table.writeCsv(out);
    }
    if (!out.flush()) throw std::runtime_error(csv + ": cannot be written");
}

}  // namespace veltrane::sceneutils::benchmarks
