-- For mpv: seeks to each target and writes one line of JSON for each, with the time shown and the pictures filtered.
local utils = require("mp.utils")
local options = {report = "", targets = ""}
require("mp.options").read_options(options, "seeks")
local targets = {}
for target in options.targets:gmatch("%S+") do targets[#targets + 1] = target end
local report = io.open(options.report, "w")
local done = -1 -- the first restart is that of opening
mp.register_event("playback-restart", function()
    local pictures = mp.get_property_native("vf-metadata/grid") or {}
    if done >= 0 then
        report:write(utils.format_json({time = mp.get_property_number("time-pos"), pictures = pictures}), "\n")
        report:flush()
    end
    done = done + 1
    if done == #targets then
        report:close()
        mp.command("quit")
        return
    end
    mp.commandv("seek", targets[done + 1], "absolute+exact")
end)
