// SPDX-License-Identifier: MIT
// Octets compared by a test.
#pragma once

#include "Octets.h"

#include <gtest/gtest.h>

// Fails with the first difference and its surroundings.
testing::AssertionResult SameOctets(const Octets& actual, const Octets& expected);
