// SPDX-License-Identifier: MIT
#include <cerrno>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>

#include "table.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;
constexpr size_t MAX_INPUT_LENGTH = size_t{1} << 20;  // Intel HEX of 64 KiB needs less than a quarter

int complain(const std::string& what)
{
    std::cerr << "vornccd-pack-firmware: " << what << '\n';
    return EXIT_FAILED;
}

firmware::Result<std::vector<uint8_t>> readInput(const std::string& path)
{
    using Input = firmware::Result<std::vector<uint8_t>>;
    std::error_code ignored;
    std::ifstream file;
    errno = 0;
    if (!std::filesystem::is_directory(path, ignored))
        file.open(path, std::ios::binary);
    if (!file.is_open())
        return Input::failure("cannot read: " + std::string(errno != 0 ? std::strerror(errno) : "it is a directory"));
    std::vector<uint8_t> bytes(MAX_INPUT_LENGTH + 1);
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (file.bad())
        return Input::failure("reading failed: " + std::string(std::strerror(errno)));
    bytes.resize(static_cast<size_t>(file.gcount()));
    if (bytes.size() > MAX_INPUT_LENGTH)
        return Input::failure("the file is larger than 1 MiB, which no bridge program is; is it the right file?");
    return bytes;
}

/// A file that appears under its name only when it is whole.
class OutputFile {
public:
    explicit OutputFile(std::string path) : path_(std::move(path)), part_(path_ + ".part") {}
    ~OutputFile()
    {
        if (!committed_)
            (void)std::remove(part_.c_str());
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool write(std::string_view content)
    {
        std::ofstream file(part_, std::ios::binary | std::ios::trunc);
        file.write(content.data(), static_cast<std::streamsize>(content.size()));
        file.close();
        return file.good();
    }

    bool commit()
    {
        committed_ = std::rename(part_.c_str(), path_.c_str()) == 0;
        return committed_;
    }

    const std::string& path() const { return path_; }

private:
    std::string path_;
    std::string part_;
    bool committed_ = false;
};

struct Options {
    std::string input;
    std::string sourcePath;
    std::string tablePath;
    firmware::Format format = firmware::Format::AUTO;
};

int run(const Options& options)
{
    const firmware::Result<std::vector<uint8_t>> input = readInput(options.input);
    if (!input.ok())
        return complain(options.input + ": " + input.error());
    const firmware::Result<firmware::Table> table = firmware::pack(input.value(), options.format);
    if (!table.ok())
        return complain(options.input + ": " + table.error());

    const std::string origin = std::filesystem::path(options.input).filename().string();
    const std::string source = firmware::sourceText(table.value(), origin);
    const std::string_view bytes(reinterpret_cast<const char*>(table.value().data()), table.value().size());
    OutputFile sourceFile(options.sourcePath);
    OutputFile tableFile(options.tablePath);
    struct Job {
        OutputFile& file;
        std::string_view content;
    };
    const Job jobs[] = {{sourceFile, source}, {tableFile, bytes}};
    errno = 0;
    for (const Job& job : jobs) {
        if (!job.file.path().empty() && !job.file.write(job.content))
            return complain(job.file.path() + ": cannot write: " + std::strerror(errno));
    }
    for (const Job& job : jobs) {
        if (!job.file.path().empty() && !job.file.commit())
            return complain(job.file.path() + ": cannot put in place: " + std::strerror(errno));
    }
    return 0;
}

int packCommand(int argc, char** argv)
{
    Options options;
    CLI::App app("Packs a program for the camera's USB bridge into the table that libvornccd uploads.");
    app.name("vornccd-pack-firmware");
    app.footer(
        "Examples:\n"
        "  vornccd-pack-firmware bridge.hex -o firmware.cpp\n"
        "  vornccd-pack-firmware table.bin --format table -o firmware.cpp\n"
        "  vornccd-pack-firmware bridge.hex --binary-out table.bin");
    const std::map<std::string, firmware::Format> formats = {{"auto", firmware::Format::AUTO},
                                                             {"ihex", firmware::Format::INTEL_HEX},
                                                             {"binary", firmware::Format::BINARY},
                                                             {"records", firmware::Format::RECORDS},
                                                             {"table", firmware::Format::TABLE}};
    app.add_option("INPUT", options.input, "Intel HEX, memory dump from address 0, load records or finished table")
        ->required();
    auto* source = app.add_option("-o,--output", options.sourcePath, "C++ source to write, defines FIRMWARE");
    auto* table = app.add_option("--binary-out", options.tablePath, "file for the 18146 bytes of the table");
    std::string formatName = "auto";
    app.add_option("--format", formatName, "what INPUT is; auto looks at its content")
        ->check(CLI::IsMember({"auto", "ihex", "binary", "records", "table"}))
        ->type_name("FORMAT")
        ->capture_default_str();
    try {
        app.parse(argc, argv);
        if (source->empty() && table->empty())
            throw CLI::RequiredError("-o or --binary-out");
        if (options.sourcePath == options.tablePath)
            throw CLI::ValidationError("--binary-out", "must be another file than -o");
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    options.format = formats.at(formatName);
    return run(options);
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return packCommand(argc, argv);
    } catch (const std::exception& error) {  // the libraries' own: out of memory, a name the file system refuses
        std::fprintf(stderr, "vornccd-pack-firmware: %s\n", error.what());
        return EXIT_FAILED;
    }
}
