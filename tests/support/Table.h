#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// A table of the recorded and published data, read whole.
///
/// A first line of column names (lat_deg, kind, ...) is left out.
class Table {
public:
    using Row = std::vector<std::string>;

    /// @param path       below the data folder, such as "ecef/stations-grs80.csv"
    /// @param separator  between the cells; with a blank any run of blanks is one separator
    explicit Table(const std::string& path, char separator = ',');

    bool found() const { return is_found; } ///< false where the data are not at hand
    const std::vector<Row>& rows() const { return all_rows; }

    static double number(const Row& row, std::size_t column) { return std::stod(row.at(column)); }
    static double radians(const Row& row, std::size_t column)
    {
        return number(row, column) * 3.141592653589793 / 180.0;
    }

private:
    std::vector<Row> all_rows;
    bool is_found = false;
};
