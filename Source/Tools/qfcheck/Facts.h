// SPDX-License-Identifier: MIT
// What a plug-in has no business to change in the process of its host.
#pragma once

#include <string>
#include <utility>
#include <vector>

// Each with its name, as "the umask".
using Facts = std::vector<std::pair<std::string, std::string>>;

Facts FactsOfProcess();
// Throws a Failure that begins with `what` and names the first fact that is not what it was.
void RequireSame(const Facts& before, const Facts& after, const std::string& what);

// Numbers of the descriptors that are open, each with what it stands for.
std::vector<std::string> OpenDescriptors();

// What this process was asked for since it started, by whomever: these are the program's, in front of the C library's.
int ThreadsStarted();
int SeedsSet();
