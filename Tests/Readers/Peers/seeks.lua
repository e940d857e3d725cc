-- For mpv: seeks to each target of each file and writes one line of JSON for each, with the file's number, the time shown and
-- the pictures filtered. The files' targets are separated by "/".
local utils = require("mp.utils")
local options = {report = "", targets = ""}
require("mp.options").read_options(options, "seeks")
local targets = {}
for part in (options.targets .. "/"):gmatch("([^/]*)/") do
    targets[#targets + 1] = {}
    for target in part:gmatch("%S+") do table.insert(targets[#targets], target) end
end
local report = io.open(options.report, "w")
local file, done
mp.register_event("start-file", function()
    file = mp.get_property_number("playlist-pos")
    done = -1 -- the first restart is that of opening
end)
mp.register_event("playback-restart", function()
    local pictures = mp.get_property_native("vf-metadata/grid") or {}
    if done >= 0 then
        report:write(utils.format_json({file = file, time = mp.get_property_number("time-pos"), pictures = pictures}), "\n")
        report:flush()
    end
    done = done + 1
    if done == #targets[file + 1] then
        mp.command("playlist-next force") -- behind the last file: the end
    else
        mp.commandv("seek", targets[file + 1][done + 1], "absolute+exact")
    end
end)
