// SPDX-License-Identifier: MIT
// One browser plays each clip of clips.mjs, and the checks refuse what is wrong: session.mjs FOLDER [CLIP...].
import { withBrowser } from './browser.mjs';
import { clips } from './clips.mjs';
import { play } from './play.mjs';
import { refuse } from './refuse.mjs';

const [folder, ...chosen] = process.argv.slice(2);
const failed = [];

async function attempt(name, run) {
    const started = Date.now();
    console.log(`== ${name}`);
    try {
        await run();
    } catch (error) {
        console.log(error);
        failed.push(name);
    }
    console.log(`${(Date.now() - started) / 1000} s`);
}

await withBrowser(async (withPage) => {
    for (const name of chosen.length ? chosen : Object.keys(clips)) {
        await attempt(name, () => play(folder, name, withPage));
    }
    if (!chosen.length) await attempt('the checks refuse what is wrong', () => refuse(folder, withPage));
});
console.log(failed.length ? `failed: ${failed.join(', ')}` : 'all passed');
process.exitCode = failed.length ? 1 : 0;
