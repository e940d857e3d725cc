// SPDX-License-Identifier: MIT
// A host session made from a fuzzer's octets: calls in any order, any values in their records, up to four files at a
// time. Like a host it never states more octets than there are, and it closes every file in the end.
//
// The input is the clock (a number) and then one call after another, as many as there are, each led by an octet:
//   bits 7 and 6: the slot of its handle
//   bits 3 to 0:  0, 1 create; 2 to 5 video; 6 to 9 audio; 10 audio set-up; 11 video set-up; 12 close; 13 options;
//                 14 clock; 15 several ordinary frames
#pragma once

#include "FuzzTarget.h"
#include "RandomSession.h"

RandomSession MakeSession(FuzzInput& input);
