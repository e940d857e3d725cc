// SPDX-License-Identifier: MIT
// What a source holds, as ffmpeg and ffprobe tell it, and which of its pictures a browser is to show after a seek.
import { execFileSync } from 'node:child_process';
import { existsSync } from 'node:fs';
import { join } from 'node:path';

const run = (program, args, input) =>
    execFileSync(program, args, { input, maxBuffer: 1 << 30, timeout: 60000, stdio: ['pipe', 'pipe', 'inherit'] });

// Rows of ffprobe's, each an array of words.
function probe(file, stream, entries) {
    const args = ['-v', 'error', '-select_streams', stream, '-show_entries', entries, '-of', 'csv=p=0', file];
    const rows = run('ffprobe', args).toString().trim();
    return rows === '' ? [] : rows.split('\n').map((row) => row.split(','));
}

const milliseconds = (seconds) => Math.round(Number(seconds) * 1000);

// Octets, three for each pixel: red, green, blue.
export function decodePng(octets) {
    return run(
        'ffmpeg',
        ['-v', 'error', '-f', 'png_pipe', '-i', 'pipe:', '-f', 'rawvideo', '-pix_fmt', 'rgb24', 'pipe:'],
        octets,
    );
}

// From planes of Y, Cb and Cr, 8 bits, to red, green, blue (ITU-R BT.601, as VP8 has it). Chromium without a graphics
// processor, like here, gives the four pixels that share a colour sample that very one; ffmpeg would interpolate.
function toRgb(planes, width, height) {
    const half = Math.ceil(width / 2);
    const blue = width * height;
    const red = blue + half * Math.ceil(height / 2);
    const rgb = new Uint8ClampedArray(width * height * 3);
    for (let y = 0, out = 0; y < height; ++y) {
        for (let x = 0; x < width; ++x) {
            const chroma = (y >> 1) * half + (x >> 1);
            const luma = (255 / 219) * (planes[y * width + x] - 16);
            const cb = (255 / 224) * (planes[blue + chroma] - 128);
            const cr = (255 / 224) * (planes[red + chroma] - 128);
            rgb[out++] = luma + 1.402 * cr;
            rgb[out++] = luma - ((0.299 * 1.402) / 0.587) * cr - ((0.114 * 1.772) / 0.587) * cb;
            rgb[out++] = luma + 1.772 * cb;
        }
    }
    return rgb;
}

export class Source {
    // name: see clips.mjs.
    constructor(folder, name, clip) {
        this.clip = clip;
        const picture = join(folder, `source-${name}.webm`);
        const ownSound = join(folder, `source-${name}.ogg`);
        this.soundFile = existsSync(ownSound) ? ownSound : picture;
        const packets = clip.size ? probe(picture, 'v', 'packet=pts_time,duration_time,flags') : [];
        const sounds = clip.rate ? probe(this.soundFile, 'a', 'packet=pts_time,duration_time') : [];
        // The file starts at its first block.
        const base = Math.min(...[...packets, ...sounds].map(([time]) => milliseconds(time)));
        this.blocks = packets.map(([time, , flags]) => ({ time: milliseconds(time) - base, key: flags.includes('K') }));
        const ends = [...packets, ...sounds].map(([time, duration]) => Number(time) + (Number(duration) || 0));
        this.length = Math.max(...ends) - base / 1000; // seconds
        this.frames = clip.size ? probe(picture, 'v', 'frame=pts_time').map(([time]) => milliseconds(time) - base) : [];
        if (!clip.size) return;
        // From the first picture to the last, so that no seeking of ffmpeg's plays a part.
        const [width, height] = clip.size;
        const size = width * height + 2 * Math.ceil(width / 2) * Math.ceil(height / 2);
        const args = ['-v', 'error', '-nostdin', '-i', picture, '-map', '0:v', '-fps_mode', 'passthrough'];
        const octets = run('ffmpeg', [...args, '-f', 'rawvideo', '-pix_fmt', 'yuv420p', 'pipe:']);
        if (octets.length !== this.frames.length * size) throw new Error(`${picture}: pictures are missing`);
        this.pictures = this.frames.map((_, frame) => toRgb(octets.subarray(frame * size), width, height));
    }

    // The frame on the screen at a time: the last that has begun.
    frameAt(time) {
        return this.frames.reduce((last, start, frame) => (start <= time ? frame : last), 0);
    }

    // The video block, of those that cues name, to which a reader goes for a time: the last that is not after it. A
    // cluster holds what lies in its second, a block at the very end of it included, and its cue names the first video
    // block in it, be it a key frame or not.
    cueFor(time) {
        const cluster = (block) => Math.max(0, Math.ceil(block.time / 1000) - 1);
        const opensCluster = (block, i, blocks) => i === 0 || cluster(blocks[i - 1]) !== cluster(block);
        const cues = this.blocks.filter(opensCluster);
        return cues.filter((block) => block.time <= time).pop() ?? cues[0];
    }

    // The frame to be seen after a seek, or null if the seek brings none. From the cue on, a reader waits for a key
    // frame. If that is later than the time asked for, it is the picture to be seen.
    frameAfterSeek(time) {
        const cue = this.cueFor(time);
        const key = this.blocks.find((block) => block.key && block.time >= cue.time);
        return key ? this.frameAt(Math.max(time, key.time)) : null;
    }

    // The whole sound as the browser's page takes it, written into a file.
    writeSound(file) {
        run('ffmpeg', ['-v', 'error', '-nostdin', '-y', '-i', this.soundFile, '-map', '0:a', '-f', 'f32le', file]);
    }

    channels() {
        return Number(probe(this.soundFile, 'a', 'stream=channels')[0][0]);
    }
}

// Where a file's video block of that time stands, in octets.
export function blockPosition(file, time) {
    const row = probe(file, 'v', 'packet=pts_time,pos').find(([start]) => milliseconds(start) === time);
    return Number(row[1]);
}

// The mean absolute difference of two pictures, 0 to 255.
export function difference(a, b) {
    if (a.length !== b.length) return 255;
    let sum = 0;
    for (let i = 0; i < a.length; ++i) sum += Math.abs(a[i] - b[i]);
    return sum / a.length;
}

// The source's frame that is most like a picture.
export function closest(source, picture) {
    const differences = source.pictures.map((frame) => difference(frame, picture));
    return differences.indexOf(Math.min(...differences));
}
