// SPDX-License-Identifier: MIT
// The state of the host's process that a plug-in must not change.
#pragma once

#include <string>
#include <utility>
#include <vector>

// Pairs of a name, such as "the umask", and a value.
using Facts = std::vector<std::pair<std::string, std::string>>;

Facts FactsOfProcess();
// Throws a Failure that begins with `what` and names the first fact that has changed.
void RequireSame(const Facts& before, const Facts& after, const std::string& what);

// The open descriptors: the number of each and the file behind it.
std::vector<std::string> OpenDescriptors();

// Calls of pthread_create and srand since the process started, by any library: this program's own versions of these
// functions stand in front of the C library's.
int ThreadsStarted();
int SeedsSet();
