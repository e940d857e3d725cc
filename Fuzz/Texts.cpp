// SPDX-License-Identifier: MIT
// The text converters against a slow model of both directions: results, octets and bounds.
#include <cstdint>
#include <string>

#include "FuzzTarget.h"
#include "TextModel.h"

namespace {

// One unit of a wide text: ASCII in one octet, the others behind their size.
std::uint32_t TakeUnit(FuzzInput& input) {
    const unsigned first = input.Octet();
    return first < 0x80 ? first : static_cast<std::uint32_t>(input.Bits(1 + first % 4));
}

// The number of units for the bounded forms; -1 means all with the terminating zero.
template <class Text>
Text Told(const Text& text, int length) {
    Text told = text;
    if (length == -1) {
        told.resize(static_cast<std::size_t>(std::find(text.begin(), text.end(), 0) - text.begin()));
        told.push_back(0);
    } else {
        told.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    return told;
}

int PickLength(FuzzInput& input, std::size_t units) {
    const unsigned choice = input.Octet();
    if (choice < 0x40) return -1;
    if (choice < 0x50) return -static_cast<int>(input.Octet());
    return static_cast<int>(choice % (units + 1));
}

void WideToUtf8(FuzzInput& input, bool strict, std::size_t room) {
    const int choice = static_cast<int>(input.Octet());
    const unsigned repeats = choice < 0xF8 ? 1 : 1U << (choice - 0xF7); // beyond the capacity of a text
    Characters once;
    const int length = PickLength(input, 16);
    while (!input.IsEmpty()) once.push_back(TakeUnit(input));
    Characters text;
    for (unsigned i = 0; i < repeats; ++i) text.insert(text.end(), once.begin(), once.end());
    Require(ToUtf8(text, room, strict) == ModelToUtf8(text, room, strict), "ConvertUTF32toUTF8");

    Wide wide = ToWide(text);
    wide.resize(std::max<std::size_t>(wide.size(), length > 0 ? static_cast<std::size_t>(length) : 0));
    wide.push_back(0);
    Outcome<unsigned char> outcome{kConverted, Octets(room + kBehind, kOctetCanary)};
    outcome.m_Result =
        WtoUTF8(wide.data(), length, reinterpret_cast<char*>(outcome.m_Target.data()), static_cast<int>(room), strict);
    const Wide told = Told(wide, length);
    Require(outcome == ModelToUtf8({told.begin(), told.end()}, room, strict), "WtoUTF8");
    // No room and nowhere to write to are the same; so are no units and no text.
    Require(WtoUTF8(wide.data(), length, nullptr, 7, strict) ==
                ModelToUtf8({told.begin(), told.end()}, 0, strict).m_Result,
            "WtoUTF8 without a target");
    Require(WtoUTF8(nullptr, length, nullptr, 0, strict) == kConverted, "WtoUTF8 without a source");

    const Octets whole = ModelUtf8Text({wide.begin(), wide.end()});
    const Utf8Text onStack(wide.data());
    Require(Octets(onStack.Data(), onStack.Data() + onStack.Size()) == whole && onStack.Data()[whole.size()] == 0,
            "Utf8Text");
    Require(UTF16To8(wide.data()) == std::string(whole.begin(), whole.end()), "UTF16To8");
}

void Utf8ToWide(FuzzInput& input, bool strict, std::size_t room) {
    const int length = PickLength(input, 16);
    const Octets text = input.Rest();
    Require(ToUtf32(text, room, strict) == ModelToUtf32(text, room, strict), "ConvertUTF8toUTF32");

    Octets octets = text;
    octets.resize(std::max<std::size_t>(octets.size(), length > 0 ? static_cast<std::size_t>(length) : 0));
    octets.push_back(0);
    Outcome<wchar_t> outcome{kConverted, Wide(room + kBehind, kWideCanary)};
    outcome.m_Result = UTF8toW(reinterpret_cast<const char*>(octets.data()), length, outcome.m_Target.data(),
                               static_cast<int>(room), strict);
    const Octets told = Told(octets, length);
    Require(outcome == ModelToUtf32(told, room, strict), "UTF8toW");
    Require(UTF8toW(reinterpret_cast<const char*>(octets.data()), length, nullptr, 7, strict) ==
                ModelToUtf32(told, 0, strict).m_Result,
            "UTF8toW without a target");
    Require(UTF8toW(nullptr, length, nullptr, 0, strict) == kConverted, "UTF8toW without a source");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const unsigned mode = input.Octet();
    const std::size_t room = input.Octet();
    (mode % 2 == 0 ? WideToUtf8 : Utf8ToWide)(input, mode / 2 % 2 == 0, room);
    return 0;
}
