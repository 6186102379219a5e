// What a page in Chromium does while something is measured: lengths of frames, keys until they are painted, memory of its process.

import {readFile} from "node:fs/promises";

/** Runs in the page: counts frames and slow keys from now on. */
function watch() {
    globalThis.watched = {frames: [], keys: [], isOn: true};
    let last = performance.now();
    const frame = now => {
        if (!watched.isOn) return;
        watched.frames.push(now - last);
        last = now;
        requestAnimationFrame(frame);
    };
    requestAnimationFrame(now => {
        last = now;
        requestAnimationFrame(frame);
    });
    // Keys that are painted within 16 ms are not told, and none is told singly twice.
    watched.observer = new PerformanceObserver(list => {
        for (const {name, duration} of list.getEntries()) if (name === "keydown") watched.keys.push(duration);
    });
    watched.observer.observe({type: "event", durationThreshold: 16});
}

const part = (sorted, share) => sorted[Math.min(sorted.length - 1, Math.floor(sorted.length * share))] ?? 0;

/** Measures `page` until stop(); presses a key in what has the focus each 150 ms if `presses`. */
export async function watchPage(page, presses = true) {
    await page.evaluate(watch);
    let isOn = true, pressed = 0;
    const pressing = (async () => {
        while (isOn && presses) {
            await page.keyboard.press("x");
            ++pressed;
            await new Promise(done => setTimeout(done, 150));
        }
    })().catch(() => {});  // the page is gone, which whoever waits for it tells
    return {
        async stop() {
            isOn = false;
            await pressing;
            await page.evaluate(() => new Promise(done => setTimeout(done, 300)));
            const {frames, keys} = await page.evaluate(() => {
                watched.isOn = false;
                watched.observer.disconnect();
                return {frames: watched.frames, keys: watched.keys};
            });
            frames.sort((a, b) => a - b);
            const allKeys = [...Array(Math.max(0, pressed - keys.length)).fill(16), ...keys].sort((a, b) => a - b);
            return {
                frames: frames.length, "p95 ms": Math.round(part(frames, 0.95)), "longest ms": Math.round(frames.at(-1) ?? 0),
                "above 50": frames.filter(length => length > 51).length,
                ...(presses ? {keys: pressed, "key p95 ms": part(allKeys, 0.95), "slowest key ms": allKeys.at(-1)} : {}),
            };
        },
    };
}

/** MiB of the process of the only page of `browser`, shared memory by share. */
export async function memoryOf(browser) {
    const session = await browser.newBrowserCDPSession();
    const {processInfo} = await session.send("SystemInfo.getProcessInfo");
    await session.detach();
    const sizes = await Promise.all(processInfo.filter(({type}) => type === "renderer").map(async ({id}) =>
        Number(/^Pss:\s+(\d+)/m.exec(await readFile(`/proc/${id}/smaps_rollup`, "utf8"))[1]) / 1024));
    return Math.round(Math.max(...sizes));
}

/** Prints one line of figures. */
export function report(name, figures) {
    console.log(name.padEnd(34), Object.entries(figures).map(([key, value]) => `${key} ${value}`).join(", "));
}
