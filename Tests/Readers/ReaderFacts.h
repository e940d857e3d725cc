// SPDX-License-Identifier: MIT
// Facts that public readers report of a file, in a common form, so that they can be compared.
#pragma once

#include <map>
#include <string>
#include <vector>

// By property: "complaints" (empty when it has none), "video codec", "size", "display size", "frame rate", "key frames"
// (places in the track, in file order), "audio codec", "sample rate", "channels", "container", "duration" (ms). A
// property that the reader does not speak of is not there.
using Facts = std::map<std::string, std::string>;

Facts MkvinfoFacts(const std::string& file);
Facts MkvmergeFacts(const std::string& file);
Facts MediainfoFacts(const std::string& file);
Facts WebmInfoFacts(const std::string& file);
Facts GstDiscovererFacts(const std::string& file);

// "0 25 50" for flags set at these places.
std::string Places(const std::vector<bool>& flags);
