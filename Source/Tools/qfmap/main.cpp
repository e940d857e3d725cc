// SPDX-License-Identifier: MIT
// qfmap: draws how a Matroska or WebM file is laid out, whoever wrote it.
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "CommandLine.h"
#include "Map.h"
#include "MapPicture.h"
#include "MapReader.h"
#include "MapStrip.h"
#include "Messages.h"
#include "StagedFile.h"
#include "ToolError.h"

namespace {

constexpr const char* kExamples = R"(Examples:
  qfmap film.mkv                                 a strip, and how many bytes each part takes
  qfmap film.mkv -o film.svg                     a picture
  qfmap film.mkv --json                          every element, track, cue, gap and lag

Exit codes: 0 done, 1 drawn, but the file is cut off or damaged, 2 it cannot be read, 3 usage, 4 the picture cannot be
written)";

void WritePicture(const FileMap& map, const std::string& path, bool overwrite) {
    StagedFile picture(path, overwrite, {map.m_Path});
    const std::string svg = MapAsSvg(map);
    std::FILE* const file = std::fopen(picture.Path().c_str(), "wb");
    const bool isWritten = file != nullptr && std::fwrite(svg.data(), 1, svg.size(), file) == svg.size();
    const bool isClosed = file != nullptr && std::fclose(file) == 0;
    if (!isWritten || !isClosed) {
        throw ToolError(kExitOutput, "cannot write '" + path + "': " + picture.WriteFailure());
    }
    picture.Keep(false);
}

int Run(int argc, char** argv) {
    CommandLine line("qfmap",
                     "Draws how a Matroska or WebM file is laid out, whoever wrote it: a strip and a table, or a "
                     "picture.");
    std::string path;
    std::string output;
    bool overwrite = false;
    bool json = false;
    line.Footer(kExamples);
    line.Argument("FILE", path, "the file to draw; qfmap reads only its headers");
    line.Option("-o,--output", "FILE.svg", output,
                "draw a picture instead: bytes across, time up, a colour for each track");
    line.Flag("-y,--overwrite", overwrite, "replace an existing picture");
    line.Flag("--json", json, "print the layout as JSON on stdout");
    line.Version("qfmap " QF_VERSION);
    if (!line.Parse(argc, argv)) return kExitDone;

    const FileMap map = ReadFileMap(path);
    if (!output.empty()) WritePicture(map, output, overwrite);
    if (json) {
        PutResult(AsText(MapAsJson(map)));
    } else if (output.empty()) {
        PutResult(MapAsStrip(map, TerminalWidth(), WantsColour()));
    }
    for (const std::string& problem : map.m_Problems) Say("warning: " + problem);
    return map.m_Problems.empty() ? kExitDone : kExitWarnings;
}

} // namespace

int main(int argc, char** argv) {
    return RunTool([=] { return Run(argc, argv); });
}
