// SPDX-License-Identifier: MIT
// One stream's filters in libavfilter.
#pragma once

#include <deque>
#include <string>

#include "AvPtr.h"

class FilterGraph {
public:
    // filter: in libavfilter's notation, with one input and one output. timeBase: of the frames. frameRate: of
    // pictures, or 0/1.
    FilterGraph(std::string filter, AVMediaType type, AVRational timeBase, AVRational frameRate);

    // Takes a frame and leaves it blank; null for the end. If the properties of the frames change, a new graph
    // continues with the output's properties of the first. Throws ToolError when libavfilter refuses the filter.
    void Push(AVFrame* frame);
    // The next filtered frame; false when the graph needs more.
    bool Pull(AVFrame& frame);
    // Before the first frame: makes all frames of sound but the last that long, in samples; 0 for any length.
    void SetFrameSize(int samples) { m_FrameSize = samples; }

    // Of pictures: how often their size changed. All are scaled to the first size.
    int SizeChanges() const { return m_SizeChanges; }

    // After the first frame: properties of the output.
    AVRational TimeBase() const;
    AVRational FrameRate() const;
    AVRational PixelAspect() const;
    AVSampleFormat SampleFormat() const;
    int SampleRate() const;
    void CopyChannelLayout(AVCodecContext& codec) const;

private:
    bool IsLike(const AVFrame& frame) const;
    void Configure(const AVFrame& frame);
    // The end of the filter chain, which keeps the output as it was before a change.
    std::string Pinned() const;
    void Drain();
    void Check(int result) const;

    const std::string m_Filter;
    const AVMediaType m_Type;
    const AVRational m_TimeBase;
    const AVRational m_FrameRate;
    AvPtr<AVFilterGraph> m_Graph;
    AVFilterContext* m_pIn = nullptr; // both belong to the graph
    AVFilterContext* m_pOut = nullptr;
    AvPtr<AVFrame> m_Like;             // the properties of the frames that the graph takes
    std::deque<AvPtr<AVFrame>> m_Rest; // frames of a graph that was replaced
    int m_FrameSize = 0;
    int m_SizeChanges = 0;
};
