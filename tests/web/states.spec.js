// Every state of the page, for those who do not see or point: in both themes, narrow and wide, with large text. With PICTURES, the name
// of a folder, each is tried in all of these views, and kept there as pictures for people.

import {CuttingProxy} from "../clients/proxy.js";
import {Console, Server, expect, startServer, test} from "./console.js";

/** Theme, width, size of the text in per cent; the states take turns with the first two and the last two. */
const views = [["light", 1280, 100], ["dark", 320, 200], ["dark", 1280, 200], ["light", 320, 100]];
let turn = 0;

/** What is wrong in the state that `console` shows. */
async function faults(console, name) {
    const {page} = console, wrong = [];
    for (const [colorScheme, width, size] of process.env.PICTURES ? views : views.slice(turn, turn + 2)) {
        await page.emulateMedia({colorScheme});
        await page.setViewportSize({width, height: 800});
        await page.evaluate(scale => document.documentElement.style.setProperty("--text-scale", scale), size / 100);
        const outside = await page.evaluate(() => {
            const isOutside = ({left, right, width}) => width > 0 && (left < 0 || right > innerWidth + 0.5);
            const controls = [...document.querySelectorAll("#header *, .input *, .find-bar *, [role=tab]")].filter(each => each.checkVisibility());
            const outside = controls.filter(each => !each.matches(".visually-hidden, h1") && isOutside(each.getBoundingClientRect()));
            return [...outside.map(({outerHTML}) => `outside: ${outerHTML.slice(0, 100)}`),
                ...(document.documentElement.scrollWidth > innerWidth ? ["the page scrolls sideways"] : [])];
        });
        wrong.push(...[...outside, ...await console.barriers()].map(text => `${name}, ${colorScheme}, ${width} pixels, ${size} %: ${text}`));
        if (process.env.PICTURES) await page.screenshot({path: `${process.env.PICTURES}/${name.replaceAll(" ", "-")}-${width}-${colorScheme}.png`});
    }
    turn = 2 - turn;
    await page.emulateMedia({colorScheme: "light"});
    await page.setViewportSize({width: 1280, height: 800});
    await page.evaluate(() => document.documentElement.style.setProperty("--text-scale", 1));
    const distance = await console.log.evaluate(({scrollHeight, scrollTop, clientHeight}) => scrollHeight - scrollTop - clientHeight);
    if (distance > 8 && !["find", "reading"].includes(name)) wrong.push(`${name}: the end of the log is not in view any more, by ${distance} pixels`);
    return wrong;
}

/** How a state is reached: code that is typed, which Stop ends, or what is done; and how it is left. */
const states = {
    "idle": {},
    "a long name": {do: async ({run}) => run(`${"averylongname".repeat(8)} = "${"value ".repeat(40)}"\nb = {i: [i] * 9 for i in range(99)}`)},
    "text with colours": {do: async ({run}) => run(`for i in range(8): print(f'\\x1b[3{i}mfront \\x1b[9{i}mbright\\x1b[m \\x1b[4{i}mback\\x1b[m \\x1b[2mfaint\\x1b[m https://example.org/{i}')`)},
    "many lines": {do: async ({run}) => run("for i in range(300): print(i, 'in a line that is long enough to be wrapped on a phone')")},
    "error": {do: async ({run}) => run("import json, warnings\nwarnings.warn('take care')\ndef parse(text):\n    return json.loads(text)\nparse('{')")},
    "figure": {do: async ({run}) => run("import matplotlib.pyplot as plt\nplt.plot([1, 3, 2]); plt.title('A title that is rather long for the place that it has')\nplt.show()")},
    "table": {do: async ({run}) => run("import pandas\npandas.DataFrame({f'column {i}': range(30) for i in range(20)})")},
    "large table": {do: async ({run, log}) => (await run("df = pandas.DataFrame({f'column {i}': range(300) for i in range(20)})\ndf"), expect(log.locator(".table")).toBeVisible())},
    "table of a variable": {do: async ({page}) => (await page.getByRole("button", {name: "Open df as a table"}).click(), expect(page.getByRole("tabpanel").locator(".table-row")).not.toHaveCount(0)),
        leave: page => page.getByRole("button", {name: "Close", exact: true}).click()},
    "running": {code: "import time, numora\nfor i in numora.progress(range(1000), 'epoch'): time.sleep(0.1)",
        do: async ({type}) => type("print('queued')\nprint(2)")},
    "input": {code: "input('Which ships\\nare in the harbour and go out with the tide? ')"},
    "password": {code: "import getpass; getpass.getpass()"},
    "debugger": {code: "breakpoint()\nx = 1"},
    "keyboard": {code: "import numora; numora.keyboard()", leave: async (page, {type}) => type("exit()")},
    "paused": {code: "import numora; numora.pause()"},
    "block open": {do: async ({type, says, code}) => (await type("for i in range(3):"), says("A block is still open"), expect(code).toHaveText("for i in range(3):"))},
    "stopping": {code: "import time\ntry: time.sleep(100)\nexcept KeyboardInterrupt: time.sleep(100)",
        do: async ({page, is}) => (await page.getByRole("button", {name: "Stop"}).click(), is("stopping"))},
    "deaf": {code: "import time\ntry: time.sleep(100)\nexcept KeyboardInterrupt: time.sleep(100)",
        do: async ({page, state}) => (await page.getByRole("button", {name: "Stop"}).click(), expect(state).toContainText("does not react"))},
    "completion": {do: async ({page, type}) => (await type("import js", "Shift"), await page.keyboard.type("o"), await page.keyboard.press("Tab"), expect(page.locator(".cm-tooltip-autocomplete")).toBeVisible()),
        leave: page => page.keyboard.press("Escape")},
    "inspection": {do: async ({page, type}) => (await type("print", "Control+i"), expect(page.getByRole("tabpanel")).toContainText("sep"))},
    "hover": {do: async ({page, code, type}) => (await type("print", "Shift"), await code.hover({position: {x: 12, y: 15}}), expect(page.locator(".cm-inspection")).toBeVisible())},
    "history": {do: async ({page}) => page.getByRole("tab", {name: "History"}).click()},
    "figures": {do: async ({page}) => page.getByRole("tab", {name: "Figures"}).click(),
        leave: page => page.getByRole("tab", {name: "Workspace"}).click()},
    "others' code": {do: async ({page, log}) => {
        await page.evaluate(() => fetch("interpreters/default/connector/v1/Eval", {method: "POST", body: '{"mcode": "6 * 7"}',
            headers: {"Content-Type": "application/json", "Connector-Client-Type": "a-script-of-somebody-else"}}));
        await expect(log.locator(".is-other")).toBeVisible();
    }},
    "find": {do: async ({page, run}) => (await run("print('found')"), await page.getByRole("button", {name: "Find"}).click(), await page.getByLabel("Find in the log").fill("found"),
        expect(page.getByRole("status")).toHaveText("2 of 2")), leave: page => page.keyboard.press("Escape")},
    "menu": {do: async ({page}) => page.getByRole("button", {name: "Menu"}).click(), leave: page => page.keyboard.press("Escape")},
    "reading": {do: async ({page, run, log, type}) => {
        await run("for i in range(200): print('line', i)");
        await type("import time; time.sleep(1)\nfor i in range(200): print('line', i)");
        await log.hover();
        await page.mouse.wheel(0, -1e7);
        await expect(page.locator(".new-lines")).toBeVisible();
    }, leave: page => page.locator(".new-lines").click()},
};

test("no state has barriers or goes beyond the page", async ({console, page}) => {
    test.setTimeout(240_000);
    const bound = Object.fromEntries(["run", "type", "says", "is"].map(name => [name, console[name].bind(console)]));
    const wrong = [];
    for (const [name, {code, do: act, leave}] of Object.entries(states)) {
        await page.keyboard.press("Control+l");
        if (code) {
            await console.type(code);
            await expect(page.getByRole("button", {name: "Stop"})).toBeEnabled();
            await expect(console.state).toHaveText(/^(Running|Waiting|Debugger|Keyboard|Paused)/);
        }
        if (code && name !== "running" && !act) await console.is("asking");
        await act?.({page, log: console.log, code: console.code, state: console.state, ...bound});
        const hasFocus = () => expect.poll(() => page.evaluate(() => document.activeElement !== document.body), name).toBe(true);
        await hasFocus();
        wrong.push(...await faults(console, name));
        await leave?.(page, bound);
        if (code && !leave) await expect(async () => {
            await page.keyboard.press("Control+.");
            await expect(console.state).toHaveText("Idle", {timeout: 2000});
        }).toPass();
        await console.is("idle");
        await hasFocus();
    }
    expect(wrong).toEqual([]);
});

test("no state without a server or an interpreter has barriers or goes beyond the page", async ({page, server}) => {
    test.slow();
    const console = new Console(page), proxy = await CuttingProxy.start(server.port), wrong = [];
    await console.open(server.origin);
    await console.open(proxy.url, "/");
    await console.type("print('last words')\nimport os, signal\nos.kill(os.getpid(), signal.SIGSEGV)");
    await console.says("SIGSEGV");
    await console.log.locator(".death summary").click();
    wrong.push(...await faults(console, "dead interpreter"));
    proxy.refuses = true;
    proxy.cut().catch(() => {});
    await expect(console.state).toContainText("Connection lost, trying again");
    await console.type("print('later')");
    wrong.push(...await faults(console, "cut off"));
    await page.clock.setFixedTime(Date.now() + 31_000);
    await expect(console.state).toContainText("does not answer since");
    wrong.push(...await faults(console, "dead server"));
    await server.stop();
    server.stop = async () => {};
    const next = await Server.start(server.port, "--token", "another-token-of-the-tests", "--console", process.env.CONSOLE);
    proxy.refuses = false;
    await console.is("refused");
    wrong.push(...await faults(console, "refused"));
    proxy.stop();
    await next.stop();
    expect(wrong).toEqual([]);
});
