// SPDX-License-Identifier: MIT
// Octets compared by a test.
#pragma once

#include "Octets.h"

#include <gtest/gtest.h>

// Fails with the first difference and its surroundings.
testing::AssertionResult SameOctets(const Octets& actual, const Octets& expected);

// The first position from `from` on at which they differ, or the size of `actual`, which is no longer than `expected`.
std::size_t EqualUpTo(const Octets& actual, const Octets& expected, std::size_t from);
