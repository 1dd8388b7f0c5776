#include "tests/support/Table.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

namespace {

Table::Row split(const std::string& line, char separator)
{
    Table::Row cells;
    std::istringstream rest(line);
    for (std::string cell; std::getline(rest, cell, separator);)
        if (separator != ' ' || !cell.empty())
            cells.push_back(cell);
    if (!line.empty() && separator != ' ' && line.back() == separator)
        cells.emplace_back();
    return cells;
}

bool is_header(const std::string& line)
{
    return !line.empty() && std::isalpha(static_cast<unsigned char>(line.front())) != 0 &&
           std::count(line.begin(), line.end(), '_') > 0;
}

} // namespace

Table::Table(const std::string& path, char separator)
{
    std::ifstream file(std::string(QUARVEL_DATA_DIR) + "/" + path);
    is_found = file.is_open();
    for (std::string line; std::getline(file, line);)
        if (!line.empty() && !(all_rows.empty() && is_header(line)))
            all_rows.push_back(split(line, separator));
}
