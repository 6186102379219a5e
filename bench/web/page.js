// The whole page against a server, beside a bare client in Node.js: node bench/web/page.js NUMORA CONSOLE [CASE]
// NUMORA is the program, CONSOLE the folder of the built page, CASE one of the names below. Needs `npm ci` in web and in clients/typescript.
// Each case runs in the client alone, then in the page; the server and the machine are the same, so that the two can be compared.

import {spawn} from "node:child_process";
import {once} from "node:events";
import {loadavg} from "node:os";
import {createInterface} from "node:readline";
import {connect} from "../../clients/typescript/dist/index.js";
import {chromium} from "../../tests/web/unit/modules.js";
import {memoryOf, report, watchPage} from "./frames.js";

const [numora, folder, only] = process.argv.slice(2);
const pad = "abcdefghij klmnopqrst uvwxyz 0123456789 ABCDEFGHIJ KLMNOPQRST UVW";
const loop = (count, text) => `for i in range(${count}): print(${text})`;
const coloured = `f'\\x1b[32m{i}\\x1b[0m ${pad.slice(0, 30)} \\x1b[1;34m${pad.slice(30)}\\x1b[0m'`;
const cases = {
    "1e6 lines": loop(1e6, `i, '${pad}'`),
    "1e6 lines, two colours": loop(1e6, coloured),
    "5e6 lines": loop(5e6, `i, '${pad}'`),
    "\\r 1e5 times": loop(1e5, "f'\\r{i} of 100000', end='', flush=True"),
    "a line of 10 MB": "print('x' * 10_000_000)",
};

async function startServer() {
    const child = spawn(numora, ["serve", "--port", "0", "--console", folder], {stdio: ["ignore", "pipe", "inherit"]});
    for await (const line of createInterface({input: child.stdout})) {
        const [, address] = /^Listening on (\S+)/.exec(line) ?? [];
        if (address) return {child, address};
    }
    throw new Error("the server has not started");
}

/** What the code takes, and what it prints, in a client that counts. */
async function inClient(address, code) {
    const client = await connect(address);
    const begin = performance.now();
    let characters = 0, dropped = 0;
    for await (const event of client.stream(code)) {
        if (event.type === "text") characters += event.text.length;
        if (event.type === "dropped") ++dropped;
    }
    const seconds = (performance.now() - begin) / 1000;
    await client.close();
    return {seconds, "Mi characters": (characters / 2 ** 20).toFixed(1), notices: dropped};
}

/** Runs in the page. Result: the name of the last evaluation; "" while it runs. */
const ended = () => document.querySelector(".entry.is-running") ? "" : [...document.querySelectorAll(".entry:has(.entry-head)")].at(-1)?.ariaLabel ?? "";

async function until(page, condition) {
    const end = performance.now() + 120_000;
    while (!condition(await page.evaluate(ended))) {
        if (performance.now() > end) throw new Error("the page has not come to an end");
        await new Promise(done => setTimeout(done, 50));
    }
}

/** The same in the page, typed into its input; until the entry has ended and all is in the log. */
async function inPage(page, code, presses) {
    await page.waitForTimeout(3000);  // what the client's code has printed last comes again
    const before = await page.evaluate(ended);
    await page.locator(".cm-content").first().focus();
    await page.keyboard.insertText(code);
    const begin = performance.now();
    await page.keyboard.press("Control+Enter");
    const watching = await watchPage(page, presses);
    await until(page, name => name !== "" && name !== before);
    const seconds = (performance.now() - begin) / 1000;
    const figures = await watching.stop();
    const notices = await page.locator(".notice").allTextContents();
    const rows = await page.evaluate(() => Number(document.querySelector(".log").style.getPropertyValue("--rows")));
    return {seconds, ...figures, rows, notices: notices.length, "MiB": await memoryOf(browser)};
}

const {child, address} = await startServer();
const browser = await chromium.launch({executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium"});
try {
    for (const [name, code] of Object.entries(cases)) {
        if (only && name !== only) continue;
        console.log(`load ${loadavg().map(load => load.toFixed(1)).join(" ")}`);
        const client = await inClient(address, code);
        report(`${name}, client`, {...client, seconds: client.seconds.toFixed(2)});
        // Keys ask for completions, which the interpreter answers beside the loop: with them it is another case.
        for (const presses of [false, true]) {
            const page = await browser.newPage();
            await page.goto(address);
            await page.locator(".cm-content").waitFor();
            const {seconds, ...figures} = await inPage(page, code, presses);
            report(`${name}, page${presses ? ", with keys" : ""}`,
                {seconds: seconds.toFixed(2), "times the client": (seconds / client.seconds).toFixed(1), ...figures});
            await page.close();
        }
    }
} finally {
    await browser.close();
    child.kill("SIGTERM");
    await once(child, "exit");
}
