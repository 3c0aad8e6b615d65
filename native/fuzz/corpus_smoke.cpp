// Runs every parser once over the committed corpus (its ini/, xml/ and schedule/ folders). Beyond
// the rules every input keeps, every settings file parses, every INI file reports variables, and
// every schedule text parses unless its file name starts with "refused-".
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/ParserChecks.h"

namespace fs = std::filesystem;

int main(int argc, char** argv)
{
    if (argc != 2)
        return std::fprintf(stderr, "usage: %s <corpus folder>\n", argv[0]), 2;
    unsigned nFailed = 0, nFiles = 0;
    for (std::string kind : {"ini", "xml", "schedule"}) {
        std::vector<fs::path> files;
        std::error_code ec;
        for (const auto& entry : fs::directory_iterator(fs::path(argv[1]) / kind, ec))
            files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        if (files.empty())
            ++nFailed, std::fprintf(stderr, "corpus_smoke: no files in %s/%s\n", argv[1], kind.c_str());
        for (const fs::path& file : files) {
            std::ifstream in(file, std::ios::binary);
            std::vector<uint8_t> b{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
            std::string name = file.string();
            vxfuzz::SetInputName(name.c_str());
            bool refused = file.filename().string().rfind("refused-", 0) == 0, bad;
            if (kind == "ini") {
                vxfuzz::IniOutcome r = vxfuzz::CheckIni(b.data(), b.size());
                bad = !r.ok || !r.nVariables;
            } else {
                bad = !(kind == "xml" ? vxfuzz::CheckXml(b.data(), b.size()) : vxfuzz::CheckSchedule(b.data(), b.size())) != refused;
            }
            if (bad)
                ++nFailed, std::fprintf(stderr, "corpus_smoke: %s %s\n", name.c_str(), refused ? "parses" : "does not read");
            ++nFiles;
        }
    }
    std::printf("corpus_smoke: %u files, %u failed\n", nFiles, nFailed);
    return nFailed ? 1 : 0;
}
