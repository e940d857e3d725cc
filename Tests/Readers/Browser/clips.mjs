// SPDX-License-Identifier: MIT
// The clips that the browser plays, with their properties. make-clips makes the files of these names: the browser plays
// `name`.webm, which qfmux wrote. Its pictures and sound are compared with the sources source-`name`.webm and
// source-`name`.ogg.
//
// size    width and height in pixels; none for sound alone
// rate    samples per second; none for pictures alone
// length  seconds that were drawn
// seeks   seconds to go to, in this order
// last    seconds from which to play to the end
// jumps   the seeks beyond the part that the browser has read by then, which need the file's cues
// tones   the sound changes once a second, so that it shows the browser's position
export const clips = {
    sample: { size: [320, 180], rate: 44100, length: 6, seeks: [0.5, 2.5, 4.5, 1.5], last: 5.5 },
    // A key frame each second, each of them the last picture of its cluster.
    picture: { size: [320, 180], length: 4, seeks: [0.7, 2.3, 3.5], last: 2.9 },
    sound: { rate: 44100, length: 6, seeks: [4.4, 1.4, 2.4], last: 5.5, tones: true },
    // A key frame every 2.52 s: most cues point at clusters that open without one.
    long: { size: [320, 180], rate: 48000, length: 6, seeks: [0.7, 1.5, 2.7, 3.3, 5.3], last: 5.4, tones: true },
    // One key frame in the whole file.
    whole: { size: [320, 180], rate: 48000, length: 6, seeks: [0.4, 3.4, 0.6], last: 5.4, tones: true },
    odd: { size: [318, 178], rate: 48000, length: 4, seeks: [3.4, 0.5, 2.4], last: 3.4, tones: true },
    // VP8's pictures that are never shown, each in a block of its own.
    hidden: { size: [176, 144], rate: 44100, length: 4, seeks: [2.5, 0.5, 3.5], last: 3.4, tones: true },
    minute: {
        size: [241, 137],
        rate: 48000,
        length: 60,
        seeks: [31.4, 58.4, 7.4],
        jumps: [31.4, 58.4],
        last: 59.4,
        tones: true,
    },
    // Shorter than a second, without sound.
    moment: { size: [320, 180], length: 0.8, seeks: [0.4, 0.1, 0.3], last: 0.3 },
};

// The tone of the second in which a time lies, in Hz; make-clips writes the same formula.
export const toneAt = (seconds) => 400 + 50 * Math.floor(seconds);
