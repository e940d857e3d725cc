// SPDX-License-Identifier: MIT
// Proves that the checks can fail: the browser's true output for one clip passes with the source's figures and fails with
// any other.
import assert from 'node:assert/strict';

import * as checks from './checks.mjs';
import { clips } from './clips.mjs';
import { decodePng, Source } from './source.mjs';

// The check passes with the first arguments and throws with each of the others.
function tells(check, right, ...wrong) {
    check(...right);
    for (const [i, each] of wrong.entries()) {
        assert.throws(() => check(...each), assert.AssertionError, `${check.name} takes wrong row ${i}`);
    }
    console.log(`${check.name}: 1 right, ${wrong.length} wrong`);
}

export async function refuse(folder, withPage) {
    const clip = clips.odd;
    const source = new Source(folder, 'odd', clip);
    const other = new Source(folder, 'sample', clips.sample);
    await withPage(folder, async ({ call, ranges, screenshot }) => {
        const opened = await call('open', 'odd.webm');
        const duration = source.length;
        tells(
            checks.checkOpened,
            [opened, clip, duration],
            [opened, { ...clip, size: [320, 178] }, duration],
            [opened, { ...clip, size: [318, 180] }, duration],
            [opened, clip, duration + 0.002],
            [opened, { ...clip, length: 5 }, null],
            [{ ...opened, opened: false }, clip, duration],
            [{ ...opened, seekable: 0 }, clip, duration],
            [{ ...opened, error: 'refused' }, clip, duration],
        );
        await call('listen');

        const found = await call('seek', 2.4, 5000);
        tells(
            checks.checkSeek,
            [found, 2.4, source],
            [found, 2.41, source], // the same picture at another time
            [{ ...found, time: 2.5 }, 2.5, source],
            [{ ...found, shown: found.shown - 1 / 30 }, 2.4, source],
            [{ ...found, shown: null }, 2.4, source],
            [{ ...found, seeked: false }, 2.4, source],
            [{ ...found, ended: true }, 2.4, source],
        );

        const picture = decodePng(await screenshot());
        const frame = source.frameAt(2400);
        const shifted = Buffer.concat([picture.subarray(3), picture.subarray(0, 3)]);
        const swapped = Buffer.from(picture);
        for (let i = 0; i < swapped.length; i += 3) [swapped[i], swapped[i + 2]] = [swapped[i + 2], swapped[i]];
        tells(
            checks.checkPicture,
            [picture, source, frame],
            [picture, source, frame - 1],
            [picture, source, frame + 1],
            [picture, source, 0],
            [picture, other, frame],
            [shifted, source, frame], // by one pixel
            [swapped, source, frame], // red and blue
            [picture.map((value) => value + (value < 250 ? 4 : 0)), source, frame], // a little brighter
            [picture.subarray(318 * 3), source, frame], // a row is missing
            [Buffer.alloc(picture.length), source, frame],
        );
        // The check that stands where no picture is to come.
        const next = source.pictures[frame + 1];
        tells(checks.checkSamePicture, [picture, source.pictures[frame]], [picture, next]);

        const played = await call('play', 0.3);
        tells(
            checks.checkPlayed,
            [played, found, clip, true],
            [played, { ...found, pictures: played.pictures }, clip, true],
            [played, { ...found, sound: played.sound }, clip, true],
            [played, found, { ...clip, rate: undefined }, true],
            [{ ...played, moved: false }, found, clip, true],
            [{ ...played, heard: 0 }, found, clip, true],
        );
        tells(
            checks.checkTone,
            [played.heard, played.time],
            [played.heard, played.time + 1.2],
            [played.heard, played.time - 1.2],
        );

        await call('seek', clip.last, 0);
        const end = await call('playToTheEnd');
        tells(
            checks.checkEnd,
            [end, clip],
            [end, { ...clip, length: 3.8 }],
            [end, { ...clip, length: 4.2 }],
            [{ ...end, ended: false }, clip],
        );

        const compare = (reference, rate) => call('compareSound', 'odd.webm', reference, rate, 1);
        const sound = await compare(source.soundFile, 48000);
        tells(
            checks.checkSound,
            [sound, 1],
            [sound, 2],
            [await compare(other.soundFile, 48000), 1],
            [await compare(source.soundFile, 44100), 1],
            [{ ...sound, samples: sound.samples - 4800 }, 1],
            [{ ...sound, level: 0 }, 1],
        );

        tells(
            checks.checkRanges,
            [ranges(), '/odd.webm'],
            [ranges(), '/sample.webm'],
            [ranges().map(([path, range]) => [path, range, 200]), '/odd.webm'],
        );
        const jumped = [['/odd.webm', 'bytes=300000-', 206]];
        tells(
            checks.checkJump,
            [jumped, '/odd.webm', 310000],
            [jumped, '/odd.webm', 299999],
            [jumped, '/odd.webm', 500000],
            [jumped, '/sample.webm', 310000],
        );

        // A file that is not there, and one that is no media file.
        assert.equal((await call('open', 'nothing.webm')).opened, false);
        assert.equal((await call('open', source.soundFile)).opened, false);
    });
}
