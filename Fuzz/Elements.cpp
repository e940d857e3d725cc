// SPDX-License-Identifier: MIT
// Trees of elements with any values. Octets and sizes must equal the model's. The walker must read a tree that the
// muxers may write without a complaint, value by value.
#include <cstdint>
#include <cstring>
#include <map>

#include "EbmlWalker.h"
#include "ElementModel.h"
#include "FuzzTarget.h"
#include "MemoryStream.h"

using namespace MatroskaWriter;

namespace {

// Some elements exist as classes only: no muxer writes them, so that the walker knows no such identifier.
bool WalkerKnows(std::uint32_t id) {
    static std::map<std::uint32_t, bool> known;
    const auto found = known.find(id);
    if (found != known.end()) return found->second;
    const Ebml::File probe(Element(id, {}));
    const bool isKnown = probe.Problems().empty() || probe.Problems()[0].m_Text.rfind("unknown identifier", 0) != 0;
    return known[id] = isKnown;
}

template <class Element>
constexpr unsigned long kIdentifier = 0;
template <>
constexpr unsigned long kIdentifier<SeekHead> = 0x4DBB;
template <>
constexpr unsigned long kIdentifier<TrackEntry> = 0xAE;
template <>
constexpr unsigned long kIdentifier<BlockGroup> = 0xA0;
template <>
constexpr unsigned long kIdentifier<SimpleBlock> = 0xA3;
template <>
constexpr unsigned long kIdentifier<CuePoint> = 0xBB;
template <>
constexpr unsigned long kIdentifier<CueTrackPosition> = 0xB7;

// A visitor that fills elements with values from the input.
class Filler {
public:
    // asMuxers: only values that the muxers may write, so that texts are valid texts.
    Filler(FuzzInput& input, bool asMuxers) : m_Input(input), m_AsMuxers(asMuxers) {}

    void operator()(CUInt& value) const {
        if (IsWanted(value)) value.Set(static_cast<std::uint64_t>(m_Input.Number()));
    }
    void operator()(CInt& value) const {
        if (IsWanted(value)) value.Set(m_Input.Number());
    }
    void operator()(CFloat& value) const {
        if (!IsWanted(value)) return;
        const auto bits = static_cast<std::uint32_t>(m_Input.Bits(4));
        std::memcpy(&value.m_Value, &bits, sizeof bits); // any NaN too
        value.m_IsSet = true;
    }
    void operator()(CBinary& value) const {
        constexpr std::uint32_t kCodecId = 0x86; // octets, of which the last is a zero
        if (!IsWanted(value)) return;
        if (m_AsMuxers && value.m_ID == kCodecId) {
            value.Set(Letters());
        } else {
            value.m_Data = m_Input.Payload();
        }
    }
    void operator()(CANSI& value) const {
        if (IsWanted(value)) value.Set(m_AsMuxers ? Letters() : Any());
    }
    void operator()(CUTF8& value) const {
        if (!IsWanted(value)) return;
        std::wstring text = m_AsMuxers ? L"a" : L"";
        for (unsigned count = m_Input.Octet() % 32; count > 0; --count) {
            text.push_back(static_cast<wchar_t>(m_Input.Number32()));
        }
        if (m_Input.OneIn(32)) { // beyond the capacity of a text
            while (text.size() < 3000) text += text + L"x";
        }
        value.Set(std::move(text));
    }
    void operator()(SeekID& value) const {
        constexpr std::array<unsigned long, 6> kSeekable = {kSegmentId, kSeekHeadId, kInfoId,
                                                            kTracksId,  kClusterId,  kCuesId};
        value.m_SeekedID = CID(kSeekable[m_Input.Octet() % kSeekable.size()]);
    }
    void operator()(CBlock& block) const {
        FillBlock(block);
        for (unsigned count = m_Input.Octet() % 6; count > 0; --count) AddFrame(block);
    }
    void operator()(SimpleBlock& block) const {
        FillBlock(block);
        block.m_Keyframe = m_Input.Octet();
        AddFrame(block);
    }
    void operator()(TrackEntry& entry) const {
        entry.m_MediaKind = m_Input.Octet() % 4;
        TrackEntry::Children(entry, *this);
    }
    template <class Child>
    void operator()(Child& child) const {
        if constexpr (std::is_base_of_v<CID, Child>) {
            Child::Children(child, *this);
        } else { // a list
            for (unsigned count = m_Input.Octet() % 4; count > 0; --count) {
                (*this)(child.emplace_back(kIdentifier<typename Child::value_type>));
            }
        }
    }

private:
    bool IsWanted(const CID& value) const { return !m_Input.OneIn(3) && (!m_AsMuxers || WalkerKnows(value.m_ID)); }
    std::string Any() const {
        const Octets octets = m_Input.Payload();
        return {octets.begin(), octets.end()};
    }
    std::string Letters() const {
        std::string text = Any() + "a";
        std::replace(text.begin(), text.end(), '\0', 'a');
        return text;
    }
    void FillBlock(BlockBase& block) const {
        constexpr std::uint64_t kMost = (std::uint64_t{1} << 56) - 2;
        block.m_TrackNumber.m_Length = static_cast<std::uint64_t>(m_Input.Number()) % (kMost + 1);
        block.m_Timecode = m_Input.Number();
    }
    void AddFrame(BlockBase& block) const { block.m_Frames.emplace_back(0).m_Data = m_Input.Payload(); }

    FuzzInput& m_Input;
    bool m_AsMuxers;
};

// A tree that has been written, and its values in order.
struct Sample {
    Octets m_Octets;
    ElementModel::Leaves m_Leaves;
};

template <class Element>
void Add(Sample& sample, FuzzInput& input, bool asMuxers, unsigned long id) {
    Element element(id);
    Filler(input, asMuxers)(element);
    Octets expected;
    ElementModel(expected, sample.m_Leaves)(element);

    MemoryStream stream;
    Require(element.Write(&stream) == 0, "Write returns 0");
    Require(stream.m_OnlyWritten, "elements only write");
    Require(stream.m_Octets == expected, "the octets are the model's");
    Require(element.Size(true) == expected.size(), "the size with its header is what is written");
    const std::uint64_t payload = element.Size(false);
    Require(payload + element.HeaderSize(payload) == expected.size(), "header and payload add up");

    // A stream that fails in the middle has taken no more than it should.
    MemoryStream failing;
    failing.m_FailFrom = input.Octet();
    Require(element.Write(&failing) == 0, "an element reports no failure of its children");
    Require(failing.m_Octets.size() <= expected.size(), "a failing stream gets no more");
    sample.m_Octets = sample.m_Octets + expected;
}

// Any element, with any of its members, whether some muxer writes them or not.
void AnyTree(FuzzInput& input) {
    Sample sample;
    switch (input.Octet() % 8) {
    case 0:
        return Add<EBML>(sample, input, false, 0x1A45DFA3);
    case 1:
        return Add<Info>(sample, input, false, kInfoId);
    case 2:
        return Add<Seek>(sample, input, false, kSeekHeadId);
    case 3:
        return Add<Track>(sample, input, false, kTracksId);
    case 4:
        return Add<Cluster>(sample, input, false, kClusterId);
    case 5:
        return Add<Cue>(sample, input, false, kCuesId);
    case 6:
        return Add<Tags>(sample, input, false, 0x1254C367);
    default:
        break;
    }
    // A number in variable-size form; a number without such a form writes nothing.
    const auto number = static_cast<std::uint64_t>(input.Number()) >> input.Octet() % 64;
    const CLength length(number);
    MemoryStream stream;
    length.Write(&stream);
    const Octets expected = number < kUnknownSize    ? ModelVariableSize(number)
                            : number == kUnknownSize ? Hex("01FFFFFFFFFFFFFF")
                                                     : Octets{};
    Require(stream.m_Octets == expected && length.Size(true) == expected.size(), "CLength");
}

void Collect(const Ebml::File& file, const std::vector<Ebml::Element>& elements, ElementModel::Leaves& leaves) {
    for (const Ebml::Element& element : elements) {
        if (element.m_pType->m_Kind == Ebml::Kind::Master) {
            Collect(file, element.m_Children, leaves);
        } else if (element.m_pType->m_Kind != Ebml::Kind::Filler) {
            leaves.emplace_back(element.m_pType->m_Id, file.PayloadOf(element));
        }
    }
}

// A whole file in the order of its elements, through the walker.
void WholeFile(FuzzInput& input) {
    Sample header;
    Add<EBML>(header, input, true, 0x1A45DFA3);
    Sample contents;
    contents.m_Leaves = header.m_Leaves;
    Add<Seek>(contents, input, true, kSeekHeadId);
    {
        const Void filler(input.Bits(2) % 5000, 0xEC);
        MemoryStream stream;
        Require(filler.Write(&stream) == 0 && stream.m_Octets.size() == filler.Size(true), "Void");
        contents.m_Octets = contents.m_Octets + stream.m_Octets;
    }
    Add<Info>(contents, input, true, kInfoId);
    Add<Track>(contents, input, true, kTracksId);
    for (unsigned count = input.Octet() % 4; count > 0; --count) Add<Cluster>(contents, input, true, kClusterId);
    Add<Cue>(contents, input, true, kCuesId);
    Add<Seek>(contents, input, true, kSeekHeadId);
    MemoryStream segment;
    Segment(contents.m_Octets.size(), kSegmentId).Write(&segment);

    const Ebml::File file(header.m_Octets + segment.m_Octets + contents.m_Octets);
    Require(file.Problems().empty(), "the walker reads the file: " + Ebml::Describe(file.Problems()));
    ElementModel::Leaves read;
    Collect(file, file.Roots(), read);
    Require(read == contents.m_Leaves, "the walker reads the values that were set");
    const auto blocks = std::count_if(read.begin(), read.end(),
                                      [](const auto& leaf) { return leaf.first == 0xA1 || leaf.first == 0xA3; });
    Require(static_cast<std::size_t>(blocks) == file.Blocks().size(), "the walker takes every block apart");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    (input.Octet() % 2 == 0 ? WholeFile : AnyTree)(input);
    return 0;
}
