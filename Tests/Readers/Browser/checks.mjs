// SPDX-License-Identifier: MIT
// Compares the browser's reports with the source. Each check throws an AssertionError that names the difference.
import assert from 'node:assert/strict';

import { rangeStart } from './browser.mjs';
import { toneAt } from './clips.mjs';
import { closest, difference } from './source.mjs';

// A mean difference of 2 in 255, over all pixels and colours. The browser and this test convert colours with different
// rounding, which makes 0.2 to 0.3; in these clips two pictures that follow each other differ by 5 and more.
export const pictureTolerance = 2;

function near(actual, expected, tolerance, what) {
    assert.ok(Math.abs(actual - expected) <= tolerance, `${what} is ${actual}, not ${expected} (within ${tolerance})`);
}

// duration: that of the source, in seconds.
export function checkOpened(seen, clip, duration) {
    assert.equal(seen.error, null);
    assert.ok(seen.opened, 'the file does not open');
    assert.deepEqual([seen.width, seen.height], clip.size ?? [0, 0]);
    assert.equal(seen.time, 0);
    near(seen.duration, duration, 0.001, 'the duration');
    near(seen.seekable, seen.duration, 0.001, 'the end of what can be sought');
}

// before: what was seen before play() was called. flowing: whether pictures follow one another from here; while one of
// a later time waits, or none is to come, the browser may decode some or none.
export function checkPlayed(seen, before, clip, flowing) {
    assert.equal(seen.error, null);
    assert.ok(seen.moved, `it does not play on from ${seen.from} s`);
    assert.ok(seen.pictures > before.pictures || !flowing, 'no pictures are decoded');
    assert.equal(seen.sound > before.sound, Boolean(clip.rate), 'sound decoded');
    if (clip.tones) checkTone(seen.heard, seen.time);
}

// The sound lags or leads the time by a little, so at the turn of a second either tone will do.
export function checkTone(heard, seconds) {
    const around = [seconds - 0.2, seconds, seconds + 0.1].map(toneAt);
    assert.ok(
        around.some((tone) => Math.abs(tone - heard) <= 12),
        `${heard} Hz are heard at ${seconds} s, not ${around[1]} Hz`,
    );
}

export function checkSeek(seen, seconds, source) {
    assert.equal(seen.error, null);
    assert.ok(seen.seeked, `the seek to ${seconds} s does not end`);
    near(seen.time, seconds, 0.0005, 'the current time');
    const frame = source.frameAfterSeek(seconds * 1000);
    if (frame === null) {
        assert.equal(seen.shown, null, 'no picture was to come');
        assert.equal(seen.ended, !source.clip.rate, 'pictures alone end here, sound goes on');
    } else if (source.clip.size) {
        assert.notEqual(seen.shown, null, 'no picture came');
        near(seen.shown, source.frames[frame] / 1000, 0.001, "the picture's time");
        assert.equal(seen.ended, false);
    }
}

export function checkPicture(picture, source, frame) {
    const apart = difference(picture, source.pictures[frame]);
    assert.ok(apart <= pictureTolerance, `the picture differs from the source's frame ${frame} by ${apart.toFixed(2)}`);
    assert.equal(closest(source, picture), frame, 'another frame of the source is more like the picture');
}

export function checkSamePicture(picture, before) {
    const apart = difference(picture, before);
    assert.ok(apart <= pictureTolerance, `the picture has changed by ${apart.toFixed(2)}`);
}

export function checkEnd(seen, clip) {
    assert.equal(seen.error, null);
    assert.ok(seen.ended, 'it does not come to an end');
    near(seen.time, clip.length, 0.1, 'the time at the end');
}

// seen: what the page's compareSound returns. The last packet of a Vorbis stream may ask for samples to be left out;
// the file cannot express that.
export function checkSound(seen, channels) {
    assert.equal(seen.channels, channels);
    assert.ok(seen.level > 0.05, 'the source is silent');
    assert.ok(seen.error < 0.0001, `the sound differs by ${seen.error}`);
    near(seen.samples, seen.expectedSamples, 2048, 'the number of samples');
}

// ranges: the requests to the server and its answers.
export function checkRanges(ranges, url) {
    const answers = ranges.filter(([path, range]) => path === url && range);
    assert.ok(answers.length > 0, 'no range was asked for');
    for (const [, range, status] of answers) assert.equal(status, 206, range);
}

// Checks that the browser went to a position: it requested octets from just before it, but not all octets on the
// way.
export function checkJump(ranges, url, position) {
    const starts = ranges.filter(([path]) => path === url).map(([, range]) => rangeStart(range));
    assert.ok(
        starts.some((start) => start <= position && start > position - 100000),
        `no range begins shortly before ${position}, but ${starts}`,
    );
}
