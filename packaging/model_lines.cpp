// SPDX-License-Identifier: MIT
// Copies a text file; a line that names @productId@ or @PRODUCTID@ is written once for each camera model, with the
// USB product id in small or capital hexadecimal digits and, for @model@, the model's name.
// Usage: vornccd-model-lines TEMPLATE OUTPUT
#include <cstdio>
#include <fstream>
#include <iostream>
#include <set>
#include <string>

#include "lifecycle/model_table.h"

namespace {

void replace(std::string& line, const std::string& mark, const std::string& value)
{
    for (size_t at = line.find(mark); at != std::string::npos; at = line.find(mark, at + value.size()))
        line.replace(at, mark.size(), value);
}

std::string hexDigits(const char* format, uint32_t number)
{
    char digits[16];
    std::snprintf(digits, sizeof digits, format, number);
    return digits;
}

/// Writes @p line for each model; a product id that the table names twice comes once.
void writeForModels(std::ostream& out, const std::string& line)
{
    std::set<uint32_t> written;
    for (const vornccd::CameraModel* model = vornccd::CAMERAS; model->name != nullptr; model++) {
        if (!written.insert(model->productId).second)
            continue;
        std::string filled = line;
        replace(filled, "@productId@", hexDigits("%04x", model->productId));
        replace(filled, "@PRODUCTID@", hexDigits("%04X", model->productId));
        replace(filled, "@model@", model->name);
        out << filled << '\n';
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "Usage: vornccd-model-lines TEMPLATE OUTPUT\n";
        return 2;
    }
    std::ifstream in(argv[1]);
    std::ofstream out(argv[2]);
    for (std::string line; std::getline(in, line);) {
        if (line.find("@productId@") != std::string::npos || line.find("@PRODUCTID@") != std::string::npos)
            writeForModels(out, line);
        else
            out << line << '\n';
    }
    out.flush();
    if (!in.eof() || !out) {
        std::cerr << "vornccd-model-lines: could not " << (in.eof() ? "write " : "read ") << argv[in.eof() ? 2 : 1]
                  << '\n';
        return 1;
    }
    return 0;
}
