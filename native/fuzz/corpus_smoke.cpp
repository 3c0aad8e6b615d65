// Runs every parser once over the committed corpus (native/corpus), so the sanitizers and the
// parser rules see the real settings files on every build, fuzzing or not.
//
// Usage: corpus_smoke <corpus folder>   (its ini/, xml/ and schedule/ folders)
// Beyond the rules every input keeps, the real files must read as what they are: every settings
// file parses, every INI file reports variables, and every schedule text parses unless its file
// name starts with "refused-" (texts the administrator may type and the parser must refuse).
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/ParserChecks.h"

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> FilesIn(const fs::path& folder)
{
    std::vector<fs::path> files;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(folder, ec))
        if (entry.is_regular_file())
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<uint8_t> ReadBytes(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <corpus folder>\n", argv[0]);
        return 2;
    }
    const fs::path root = argv[1];
    unsigned nFailed = 0, nFiles = 0;
    std::string summary;
    for (const char* kind : {"ini", "xml", "schedule"}) {
        std::vector<fs::path> files = FilesIn(root / kind);
        if (files.empty()) {
            std::fprintf(stderr, "corpus_smoke: no files in %s\n", (root / kind).c_str());
            ++nFailed;
        }
        for (const fs::path& file : files) {
            std::vector<uint8_t> bytes = ReadBytes(file);
            std::string name = file.string();
            vxfuzz::SetInputName(name.c_str());
            std::string refused = file.filename().string().rfind("refused-", 0) == 0 ? "refused" : "";
            const char* problem = nullptr;
            if (std::string(kind) == "ini") {
                vxfuzz::IniOutcome r = vxfuzz::CheckIni(bytes.data(), bytes.size());
                if (!r.ok || !r.nVariables)
                    problem = "reports no variables";
            } else if (std::string(kind) == "xml") {
                if (!vxfuzz::CheckXml(bytes.data(), bytes.size()))
                    problem = "does not parse";
            } else {
                int parsed = vxfuzz::CheckSchedule(bytes.data(), bytes.size());
                if (parsed && !refused.empty())
                    problem = "parses, but should be refused";
                if (!parsed && refused.empty())
                    problem = "is refused";
            }
            if (problem) {
                std::fprintf(stderr, "corpus_smoke: %s %s\n", name.c_str(), problem);
                ++nFailed;
            }
            ++nFiles;
        }
        summary += (summary.empty() ? "" : ", ") + std::to_string(files.size()) + " " + kind;
    }
    std::printf("corpus_smoke: %u files (%s), %u failed\n", nFiles, summary.c_str(), nFailed);
    return nFailed ? 1 : 0;
}
