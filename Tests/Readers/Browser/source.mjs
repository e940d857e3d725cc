// SPDX-License-Identifier: MIT
// What a source holds, as ffmpeg and ffprobe tell it, and which of its pictures a browser is to show after a seek.
import { execFileSync } from 'node:child_process';
import { existsSync } from 'node:fs';
import { join } from 'node:path';

import { PNG } from 'pngjs';

const run = (program, args) =>
    execFileSync(program, args, { maxBuffer: 1 << 30, timeout: 60000, stdio: ['ignore', 'pipe', 'inherit'] });

// What ffprobe lists of a file, as objects.
const probe = (file, entries) => JSON.parse(run('ffprobe', ['-v', 'error', '-show_entries', entries, '-of', 'json', file]));

const milliseconds = (seconds) => Math.round(Number(seconds) * 1000);

// Octets, three for each pixel: red, green, blue.
export function decodePng(octets) {
    return PNG.sync.read(octets).data.filter((_, place) => place % 4 !== 3); // without opacity
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
        this.soundFile = `${name}.f32`; // the whole sound as the browser's page takes it
        const files = ['webm', 'ogg'].map((end) => join(folder, `source-${name}.${end}`)).filter(existsSync);
        const entries =
            'packet=codec_type,pts_time,duration_time,flags:frame=media_type,pts_time:stream=codec_type,channels';
        const listed = files.map((file) => probe(file, entries));
        const rows = listed.flatMap((each) => each.packets_and_frames);
        const packets = rows.filter((row) => row.type === 'packet');
        // The file starts at its first block.
        const base = Math.min(...packets.map((packet) => milliseconds(packet.pts_time)));
        this.blocks = packets
            .filter((packet) => packet.codec_type === 'video')
            .map((packet) => ({ time: milliseconds(packet.pts_time) - base, key: packet.flags.includes('K') }));
        const ends = packets.map((packet) => Number(packet.pts_time) + (Number(packet.duration_time) || 0));
        this.length = Math.max(...ends) - base / 1000; // seconds
        this.frames = rows
            .filter((row) => row.type === 'frame' && row.media_type === 'video')
            .map((frame) => milliseconds(frame.pts_time) - base);
        this.channels = listed.flatMap((each) => each.streams).find((stream) => stream.channels)?.channels;
        // From the first picture to the last, so that no seeking of ffmpeg's plays a part.
        const pictures = ['-map', '0:v', '-fps_mode', 'passthrough', '-f', 'rawvideo', '-pix_fmt', 'yuv420p', 'pipe:'];
        const sound = ['-map', `${files.length - 1}:a`, '-f', 'f32le', join(folder, this.soundFile)];
        const octets = run('ffmpeg', [
            ...['-v', 'error', '-nostdin', '-y', ...files.flatMap((file) => ['-i', file])],
            ...(clip.size ? pictures : []),
            ...(clip.rate ? sound : []),
        ]);
        if (!clip.size) return;
        const [width, height] = clip.size;
        const size = width * height + 2 * Math.ceil(width / 2) * Math.ceil(height / 2);
        if (octets.length !== this.frames.length * size) throw new Error(`${name}: pictures are missing`);
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
}

// Where a file's video block of that time stands, in octets.
export function blockPosition(file, time) {
    const { packets } = probe(file, 'packet=codec_type,pts_time,pos');
    return Number(packets.find((each) => each.codec_type === 'video' && milliseconds(each.pts_time) === time).pos);
}

// The mean absolute difference of two pictures, 0 to 255; something from `enough` on if it is that large.
export function difference(a, b, enough = 255) {
    if (a.length !== b.length) return 255;
    let sum = 0;
    for (let i = 0; i < a.length && sum < enough * a.length; ) {
        for (const end = Math.min(i + 4096, a.length); i < end; ++i) sum += Math.abs(a[i] - b[i]);
    }
    return sum / a.length;
}

// The source's frame that is most like a picture.
export function closest(source, picture) {
    let [best, least] = [-1, 256];
    for (const [frame, octets] of source.pictures.entries()) {
        const apart = difference(octets, picture, least);
        if (apart < least) [best, least] = [frame, apart];
    }
    return best;
}
