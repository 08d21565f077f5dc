#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace veltrane::sceneutils::benchmarks {

/** Rows of text and numbers, for people and for spreadsheets. */
class Table {
public:
    explicit Table(std::vector<std::string> columns);

    /** Begins a row; cells follow from left to right. */
    Table& row();
    Table& cell(const std::string& text);
    Table& cell(double number, int decimals);

    /** Columns set below one another, numbers to the right. */
    void print(std::ostream& out) const;

    /** A heading line, commas between the columns; cells with commas or quotation marks stand in quotation marks. */
    void writeCsv(std::ostream& out) const;

private:
    std::vector<std::vector<std::string>> _rows;  ///< the first one is the heading
};

struct TitledTable {
    std::string title;  ///< may be empty
    Table table;
};

/**
 * Prints tables below their titles, and writes them without these to one CSV file, an empty line between two.
 * @param csv the file's path; empty: there is none
 * @throws std::runtime_error if it cannot be written
 */
void showTables(const std::vector<TitledTable>& tables, const std::string& csv);

}  // namespace veltrane::sceneutils::benchmarks
