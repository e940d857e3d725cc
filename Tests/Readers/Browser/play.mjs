// SPDX-License-Identifier: MIT
// Opens, plays and seeks one clip of clips.mjs in a browser. The pictures on the screen are left in the folder.
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';

import * as checks from './checks.mjs';
import { clips } from './clips.mjs';
import { blockPosition, decodePng, Source } from './source.mjs';

export async function play(folder, name, withPage) {
    const clip = clips[name];
    const url = `${name}.webm`;
    const source = new Source(folder, name, clip);

    const frameAfterSeek = (seconds) => (clip.size ? source.frameAfterSeek(seconds * 1000) : null);
    // How many milliseconds a picture may take to come, or has to show that none comes.
    const patience = (frame) => (frame !== null ? 5000 : clip.size ? 500 : 0);

    await withPage(folder, async ({ call, ranges, screenshot }) => {
        const opened = await call('open', url);
        checks.checkOpened(opened, clip, source.length);
        if (clip.tones) await call('listen');
        checks.checkPlayed(await call('play', 0.3), opened, clip, Boolean(clip.size));

        for (const seconds of clip.seeks) {
            const frame = frameAfterSeek(seconds);
            const shownBefore = clip.size && frame === null ? decodePng(await screenshot()) : null;
            const found = await call('seek', seconds, patience(frame));
            checks.checkSeek(found, seconds, source);
            const report = [`sought ${seconds} s: time ${found.time} s`];
            if (clip.size) {
                const png = await settled(
                    screenshot,
                    (picture) =>
                        frame === null
                            ? checks.checkSamePicture(picture, shownBefore)
                            : checks.checkPicture(picture, source, frame),
                    join(folder, `${name}-wrong.png`),
                );
                writeFileSync(join(folder, `${name}-at-${seconds}.png`), png);
                report.push(frame === null ? 'no picture' : `picture of ${found.shown} s`);
            }
            if (!found.ended) {
                const played = await call('play', 0.3);
                checks.checkPlayed(played, found, clip, frame !== null && found.shown <= seconds);
                if (clip.tones) report.push(`${Math.round(played.heard)} Hz at ${played.time} s`);
            }
            console.log(report.join(', '));
        }

        await call('seek', clip.last, 0);
        const end = await call('playToTheEnd');
        checks.checkEnd(end, clip);
        checks.checkRanges(ranges(), `/${url}`);
        console.log(`size ${opened.width}x${opened.height}, duration ${opened.duration} s, ended at ${end.time} s`);
        if (clip.rate) {
            const sound = await call('compareSound', url, source.soundFile, clip.rate, source.channels);
            checks.checkSound(sound, source.channels);
            console.log(`sound: ${sound.samples} samples (source ${sound.expectedSamples}), difference ${sound.error}`);
        }
    });

    // A browser goes to a cue and does not request most of the octets on the way.
    for (const seconds of clip.jumps ?? []) {
        const position = blockPosition(join(folder, url), source.cueFor(seconds * 1000).time);
        await withPage(
            folder,
            async ({ call, ranges }) => {
                await call('open', url);
                await call('seek', seconds, 5000);
                checks.checkJump(ranges(), `/${url}`, position);
            },
            [3 << 20, position - 100000],
        );
    }
}

// A picture on its way to the screen may take a moment: the check has two seconds to pass. Returns the screenshot, or leaves
// it in the file `wrong` when the check does not pass.
async function settled(screenshot, check, wrong) {
    for (const end = Date.now() + 2000; ; ) {
        const png = await screenshot();
        try {
            check(decodePng(png));
            return png;
        } catch (error) {
            if (Date.now() < end) continue;
            writeFileSync(wrong, png);
            throw error;
        }
    }
}
