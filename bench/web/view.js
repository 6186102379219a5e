// The output view alone, in a page in Chromium with synthetic text: node bench/web/view.js [millions of lines]
// Each case is given to the view as the wire gives it: in messages of 64 Ki characters, the next when less than 1 Mi wait.

import {loadavg} from "node:os";
import {ViewPage} from "../../tests/web/unit/view.js";
import {memoryOf, report, watchPage} from "./frames.js";

const million = Number(process.argv[2] ?? 1) * 1e6;

/** Runs in the page. Result: seconds until all is appended. */
async function feed([kind, count]) {
    const pad = "abcdefghij klmnopqrst uvwxyz 0123456789 ABCDEFGHIJ KLMNOPQRST UVW";
    const line = {
        plain: i => `${i} ${pad}\n`,
        coloured: i => `\x1b[32m${i}\x1b[0m ${pad.slice(0, 30)} \x1b[1;34m${pad.slice(30)}\x1b[0m\n`,
        progress: i => `\r${i} of ${count}`,
        long: () => pad + pad,
    }[kind];
    const begin = performance.now();
    const one = view.beginEntry({code: `${kind} ${count}`, isOwn: true});
    const channel = new MessageChannel();
    for (let i = 0; i < count;) {
        while (i < count && view.backlog < 1 << 20) {
            let text = "";
            while (i < count && text.length < 65536) text += line(i++);
            one.write(text, "output");
        }
        await new Promise(done => {
            channel.port1.onmessage = done;
            channel.port2.postMessage(0);
        });
    }
    while (view.backlog > 0) await frame();
    one.end({isError: false});
    await frame();
    return ((performance.now() - begin) / 1000).toFixed(2);
}

async function measured(name, kind, count, then = async () => {}) {
    const view = await ViewPage.open();
    const {page, browser} = view;
    await page.evaluate(() => {
        const input = document.createElement("input");
        input.style.cssText = "position: fixed; top: 0; right: 0; z-index: 1";
        document.body.append(input);
        input.focus();
        return frame();
    });
    const before = await memoryOf(browser);
    const watching = await watchPage(page);
    const seconds = await page.evaluate(feed, [kind, count]);
    const figures = await watching.stop();
    const {rows, characters} = await page.evaluate(() => ({...view.size}));
    report(name, {seconds, ...figures, rows, "Mi characters": (characters / 2 ** 20).toFixed(1), "MiB before": before, "MiB after": await memoryOf(browser)});
    await then(page);
    if (view.complaints.length > 0) throw new Error(view.complaints.join("\n"));
    await view.close();
}

/** What the machine leaves: frames and keys of a page that only spins for 8 ms a frame. */
async function control() {
    const view = await ViewPage.open();
    const watching = await watchPage(view.page);
    await view.page.evaluate(async () => {
        for (const begin = performance.now(); performance.now() - begin < 3000;) {
            await new Promise(requestAnimationFrame);
            for (const spun = performance.now(); performance.now() - spun < 8;);
        }
    });
    report("nothing but 8 ms a frame", await watching.stop());
    await view.close();
}

/** Finds, selects and copies in what is there. */
async function use(page) {
    for (const [query, matchCase] of [["99999", true], ["klmnopqrst uvw", false], ["not there", false]]) {
        const watching = await watchPage(page, false);
        const [count, milliseconds] = await page.evaluate(async ([query, matchCase]) => {
            const begin = performance.now();
            const {count} = await new Promise(done => find(query, {matchCase, onChange: state => state.isDone && done(state)}));
            return [count, Math.round(performance.now() - begin)];
        }, [query, matchCase]);
        report(`  find "${query}"${matchCase ? ", exact" : ""}`, {milliseconds, count, ...await watching.stop()});
    }
    await page.evaluate(() => view.region.focus());
    const begin = performance.now();
    await page.keyboard.press("Control+A");
    const selected = performance.now();
    await page.keyboard.press("Control+C");
    const copied = performance.now();
    const length = await page.evaluate(async () => (await navigator.clipboard.readText()).length);
    const equal = await page.evaluate(async () => await navigator.clipboard.readText() === view.text());
    report("  select all, copy", {"select s": ((selected - begin) / 1000).toFixed(2), "copy s": ((copied - selected) / 1000).toFixed(2), length, equal});
}

console.log(`load ${loadavg().map(load => load.toFixed(1)).join(" ")}`);
await control();
await measured("1e6 lines", "plain", million, use);
await measured("1e6 lines, two colours", "coloured", million);
await measured("5e6 lines", "plain", 5 * million);
await measured("\\r 1e5 times", "progress", million / 10);
await measured("a line of 10 MB", "long", million / 13);
console.log(`load ${loadavg().map(load => load.toFixed(1)).join(" ")}`);
