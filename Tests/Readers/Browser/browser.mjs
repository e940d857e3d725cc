// SPDX-License-Identifier: MIT
// Headless Chromium; each of its pages holds one <video> and has a server of its own. Every wait is bounded.
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

import httpServer from 'http-server';
import { chromium } from 'playwright-core';

const page = `<!doctype html>
<link rel="icon" href="data:,">
<style>body { margin: 0; background: #fff } video { display: block }</style>
<video></video>
<script>
const video = document.querySelector('video');

// Resolves with true at the event, with false once that many milliseconds have passed.
function happens(event, milliseconds = 5000) {
    return new Promise((resolve) => {
        video.addEventListener(event, () => resolve(true), { once: true });
        setTimeout(() => resolve(false), milliseconds);
    });
}

const pause = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

// Resolves with true as soon as the condition holds.
async function comes(condition, milliseconds = 5000) {
    const end = performance.now() + milliseconds;
    while (!condition() && performance.now() < end) await pause(10);
    return condition();
}

let analyser = null;
// The loudest frequency of what is playing now, in Hz; 0 in silence.
function tone() {
    const bins = new Float32Array(analyser.frequencyBinCount);
    analyser.getFloatFrequencyData(bins);
    const best = bins.reduce((most, value, bin) => (value > bins[most] ? bin : most), 0);
    return bins[best] < -50 ? 0 : (best * analyser.context.sampleRate) / analyser.fftSize;
}

function listen() {
    const context = new AudioContext();
    analyser = new AnalyserNode(context, { fftSize: 4096, smoothingTimeConstant: 0 });
    context.createMediaElementSource(video).connect(analyser).connect(context.destination);
    return context.resume();
}

function state() {
    return {
        error: video.error && video.error.message,
        ended: video.ended,
        time: video.currentTime,
        duration: video.duration,
        seekable: video.seekable.length ? video.seekable.end(0) : 0,
        width: video.videoWidth,
        height: video.videoHeight,
        pictures: video.getVideoPlaybackQuality().totalVideoFrames,
        sound: video.webkitAudioDecodedByteCount,
    };
}

async function open(url) {
    const ready = happens('loadeddata', 10000);
    const failed = happens('error', 10000);
    video.preload = 'auto';
    video.src = url;
    const opened = await Promise.race([ready, failed.then(() => false)]);
    return { opened, ...state() };
}

// Plays for that many seconds of the file's time, until something is heard, then pauses.
async function play(seconds) {
    const from = video.currentTime;
    await video.play();
    const moved = await comes(() => video.currentTime >= from + seconds && (!analyser || tone() > 0));
    const seen = { moved, from, heard: analyser ? tone() : 0, ...state() };
    video.pause();
    return seen;
}

// shown: the time that the file gives the picture which the seek brought to the screen; null if it brought none, for
// which this waits so many milliseconds.
async function seek(seconds, patience) {
    let shown = null;
    const handle = video.requestVideoFrameCallback((now, frame) => (shown = frame.mediaTime));
    const done = happens('seeked');
    video.currentTime = seconds;
    const seeked = await done;
    await comes(() => shown !== null, patience);
    video.cancelVideoFrameCallback(handle);
    return { seeked, shown, ...state() };
}

async function playToTheEnd() {
    const end = happens('ended', 10000);
    await video.play();
    return { ended: await end, ...state() };
}

// The whole sound, decoded at once, beside the samples of a file: 32-bit floats, channels interleaved.
async function compareSound(url, reference, rate, channels) {
    const octets = async (name) => (await fetch(name)).arrayBuffer();
    const context = new OfflineAudioContext(channels, 1, rate);
    const decoded = await context.decodeAudioData(await octets(url));
    const expected = new Float32Array(await octets(reference));
    const samples = Math.min(decoded.length, expected.length / channels);
    let error = 0;
    let power = 0;
    for (let channel = 0; channel < decoded.numberOfChannels; ++channel) {
        const data = decoded.getChannelData(channel);
        for (let i = 0; i < samples; ++i) {
            const value = expected[i * channels + channel];
            error += (data[i] - value) ** 2;
            power += value ** 2;
        }
    }
    const count = samples * decoded.numberOfChannels;
    return {
        channels: decoded.numberOfChannels,
        samples: decoded.length,
        expectedSamples: expected.length / channels,
        error: Math.sqrt(error / count),
        level: Math.sqrt(power / count),
    };
}
</script>`;

const arguments_ = [
    '--headless',
    '--disable-gpu',
    '--disable-quic',
    '--no-first-run',
    '--disable-background-networking',
    '--disable-component-update',
    '--disable-sync',
    '--autoplay-policy=no-user-gesture-required',
];

// NaN without a range.
export const rangeStart = (range) => Number(/^bytes=(\d+)-/.exec(range)?.[1]);

// Runs `use` with a browser, given as withPage below; whatever happens, nothing is left behind. The sandbox needs rights
// that containers and root do not have; all that is loaded here is our own.
export async function withBrowser(use) {
    const home = mkdtempSync(join(tmpdir(), 'qf-browser-'));
    let context = null;
    try {
        context = await chromium.launchPersistentContext(join(home, 'profile'), {
            executablePath: '/usr/bin/chromium',
            chromiumSandbox: false,
            args: arguments_,
            env: { ...process.env, HOME: home },
            viewport: { width: 640, height: 480 },
            timeout: 30000,
        });
        context.setDefaultTimeout(15000);
        await use((...rest) => withPage(context, ...rest));
    } finally {
        if (context) await within(15000, 'closing the browser', context.close());
        rmSync(home, { recursive: true, force: true, maxRetries: 5 });
    }
}

// Runs `use` with a new page that reads from the folder. The server's port is new as well, so that nothing that the
// browser keeps of other pages' files is taken for this one's.
// gap: the octets [from, to) of a file do not come: an answer that leads there stalls, as on a slow line.
async function withPage(context, folder, use, gap = [0, 0]) {
    const responses = [];
    // Of each answer that has begun: [path, the Range asked for, the status it got]
    const ranges = () =>
        responses
            .filter((response) => response.headersSent)
            .map((response) => [response.req.url, response.req.headers.range, response.statusCode]);
    const server = httpServer.createServer({
        root: folder,
        cache: -1,
        before: [
            (request, response) => {
                if (request.url === '/') {
                    response.writeHead(200, { 'Content-Type': 'text/html; charset=utf-8' });
                    response.end(page);
                    return;
                }
                let at = rangeStart(request.headers.range) || 0;
                if (at < gap[1]) {
                    response.on('pipe', (file) =>
                        file.on('data', (octets) => {
                            at += octets.length;
                            if (at >= gap[0]) file.unpipe(response);
                        }),
                    );
                }
                response.emit('next');
            },
        ],
    });
    server.server.prependListener('request', (request, response) => responses.push(response));
    let tab = null;
    try {
        await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
        tab = await context.newPage();
        await tab.goto(`http://127.0.0.1:${server.server.address().port}/`);
        const call = (name, ...args) =>
            within(
                20000,
                name,
                tab.evaluate(([name, args]) => globalThis[name](...args), [name, args]),
            );
        await use({ call, ranges, screenshot: () => tab.locator('video').screenshot() });
    } finally {
        if (tab) await within(15000, 'closing a page', tab.close());
        server.server.closeAllConnections?.();
        server.close();
    }
}

function within(milliseconds, what, promise) {
    let timer;
    const late = new Promise((_, reject) => {
        timer = setTimeout(() => reject(new Error(`${what} takes longer than ${milliseconds} ms`)), milliseconds);
    });
    return Promise.race([promise, late]).finally(() => clearTimeout(timer));
}
