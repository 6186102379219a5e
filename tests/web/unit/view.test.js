import assert from "node:assert/strict";
import {after, afterEach, before, test} from "node:test";
import {ViewPage} from "./view.js";

let view, page;
before(async () => {
    view = await ViewPage.open();
    ({page} = view);
});
after(() => view?.close());
afterEach(() => assert.deepEqual(view.complaints.splice(0), []));

const run = (what, body, argument) => test(what, {timeout: 60_000}, async () => body(await page.evaluateHandle(options => make(options), argument)));
const evaluate = (body, argument) => page.evaluate(body, argument);

run("blocks hold 200 lines or 16 Ki characters, groups 48 blocks, and all that was printed", async () => {
    const {blocks, groups, same} = await evaluate(async () => {
        const text = Array.from({length: 20_000}, (_, i) => `line ${i}\n`).join("") + `${"😀".repeat(20_001)}\nlast`;
        const one = entry();
        for (let at = 0; at < text.length; at += 997) one.write(text.slice(at, at + 997), "output");
        const same = one.text() === text;
        const blocks = [...document.querySelectorAll(".block")].map(({textContent}) => textContent);
        return {blocks, groups: [...document.querySelectorAll(".block-group")].map(group => group.childElementCount), same};
    });
    assert.ok(same);
    assert.equal(Math.max(...blocks.map(text => text.split("\n").length - 1)), 200);
    assert.ok(Math.max(...blocks.map(text => text.length)) <= 16384);
    assert.ok(blocks.every(text => !/^[\udc00-\udfff]|[\ud800-\udbff]$/.test(text)));
    assert.deepEqual(groups.slice(0, -1), [48, 48]);
});

run("the oldest rows go beyond the limit, are counted, and what is read stays where it is", async () => {
    const result = await evaluate(async () => {
        const first = entry("first\ncode");
        const lines = (from, to) => Array.from({length: to - from}, (_, i) => `line ${from + i}\n`).join("");
        first.write(lines(0, 600), "output");
        first.end({isError: false});
        first.write("late\n", "output");
        const second = entry();
        second.write(lines(600, 2600), "output");
        await frame();
        const {region} = view, block = [...document.querySelectorAll(".block")].at(-2);
        block.scrollIntoView();
        await frame();
        const before = block.getBoundingClientRect().top;
        second.write(lines(2600, 3000), "output");
        await frame();
        return {moved: block.getBoundingClientRect().top - before, rows: view.size.rows, entries: view.entries().length,
            top: region.firstElementChild.textContent, kept: second.text().split("\n")[0], characters: view.size.characters === second.text().length,
            button: document.querySelector(".new-lines").textContent};
    });
    assert.deepEqual(result, {moved: 0, rows: 1801, entries: 1, top: "1,203 earlier lines are not kept", kept: "line 1200", characters: true,
        button: "400 new lines"});
}, {limits: {rows: 2000}});

run("the end stays in view until one scrolls up, and again from the end on", async () => {
    const atEnd = async (lines = 100) => evaluate(async lines => {
        (view.entries()[0] ?? entry()).write("line\n".repeat(lines), "output");
        await frame();
        return view.region.scrollHeight - view.region.scrollTop - view.region.clientHeight < 2;
    }, lines);
    const button = page.locator(".new-lines");
    assert.ok(await atEnd());
    await page.locator(".log").hover();
    await page.mouse.wheel(0, -300);
    await page.waitForFunction(() => view.region.scrollTop + view.region.clientHeight < view.region.scrollHeight - 200);
    assert.equal(await atEnd(), false);
    await button.click();
    assert.ok(await atEnd());
    assert.ok(await button.isHidden());
    await evaluate(() => getSelection().selectAllChildren(document.querySelector(".block")));
    assert.equal(await atEnd(), false);
});

run("styles and addresses are spans and anchors in view, and text out of view", async () => {
    const result = await evaluate(async () => {
        const one = entry();
        const text = "\x1b[31mred\x1b[m (see https://a.test/x_(1)), <b>javascript:alert(1)</b> http://b.test/\x1b[1my\x1b[m.\n";
        one.write(text, "output");
        await frame();
        const links = [...document.querySelectorAll(".block a")].map(({href, rel, target, textContent}) => [href, rel, target, textContent]);
        const spans = [...document.querySelectorAll(".block span")].map(({className, textContent}) => [className, textContent]);
        one.write("\x1b[32mgreen\x1b[m\n" + "plain\n".repeat(5000), "output");
        await frame();
        for (let i = 0; i < 20 && document.querySelector(".fg-1"); ++i) await frame();
        const gone = !document.querySelector(".fg-1, .block a");
        view.region.scrollTop = 0;
        for (let i = 0; i < 20 && !document.querySelector(".fg-1"); ++i) await frame();
        return {links, spans, gone, back: document.querySelectorAll(".fg-1, .fg-2, .block a").length, text: one.text().slice(0, 100)};
    });
    const rel = "noopener noreferrer";
    assert.deepEqual(result, {
        links: [["https://a.test/x_(1)", rel, "_blank", "https://a.test/x_(1)"], ["http://b.test/y", rel, "_blank", "http://b.test/y"]],
        spans: [["fg-1", "red"], ["bold", "y"]], gone: true, back: 4,
        text: "red (see https://a.test/x_(1)), <b>javascript:alert(1)</b> http://b.test/y.\ngreen\n" + "plain\n".repeat(5).slice(0, 18)});
});

run("what is copied is what was printed, with code and notices, without numbers and buttons", async () => {
    await evaluate(async () => {
        const one = view.beginEntry({number: 4, code: "for i in x:\n    y()", clientType: "other", isOwn: false});
        one.write("out", "output");
        one.write("err\n", "error");
        one.write(`${"z".repeat(20_000)}\nend`, "output");
        one.notice("12 messages were dropped here");
        const node = document.createElement("p");
        node.textContent = "a figure";
        one.place(node, 3);
        one.end({isError: true, seconds: 75});
        view.notice("after");
        view.flush();
        view.region.focus();
    });
    await page.keyboard.press("Control+A");
    await page.keyboard.press("Control+C");
    const output = `outerr\n${"z".repeat(20_000)}\nend\n12 messages were dropped here\na figure`;
    const clipboard = () => evaluate(() => navigator.clipboard.readText());
    assert.equal(await clipboard(), `for i in x:\n    y()\n${output}\nafter`);
    assert.equal(await evaluate(() => view.text()), await clipboard());
    await page.getByRole("button", {name: "Copy code"}).click();
    assert.equal(await clipboard(), "for i in x:\n    y()");
    await page.getByRole("button", {name: "Copy output"}).click();
    assert.equal(await clipboard(), output);
    assert.equal(await page.getByRole("article", {name: "Evaluation 4"}).locator(".entry-label").textContent(), "Error, 1 min 15 s");
});

run("all of a large log is copied, too, until something else is done", async () => {
    const wanted = await evaluate(() => {
        entry().write("line\n".repeat(30_000), "output");
        view.region.focus();
        return view.text();
    });
    const marked = () => evaluate(() => CSS.highlights.has("selected-all"));
    for (const key of ["a", "c"]) await page.keyboard.press(`Control+${key}`);
    assert.ok(await marked());
    assert.ok(await evaluate(async wanted => await navigator.clipboard.readText() === wanted, wanted));
    await page.keyboard.press("ArrowUp");
    assert.equal(await marked(), false);
});

run("the unfinished line is one node that carriage returns change", async () => {
    assert.deepEqual(await evaluate(async () => {
        const one = entry();
        for (let i = 0; i <= 1e5; ++i) one.write(`\r${i} %`, "output");
        view.flush();
        return [one.text(), document.querySelectorAll(".block, .block span").length, view.size.rows];
    }), ["100000 %", 2, 2]);
});

run("find counts, chooses the last match, steps around, and marks what is in view", async () => {
    const result = await evaluate(async () => {
        const one = entry("n-edle()");
        one.write(("hay\n".repeat(5000) + "a \x1b[31mN-e\x1b[mdle (n-edle)\n").repeat(3), "output");
        one.notice("n-edle dropped");
        const done = options => new Promise(done => find("n-edle", {...options, onChange: state => state.isDone && done({...state})}));
        const exact = await done({matchCase: true});
        const states = [await done()];
        const found = find("n-edle");
        while (!found.state.isDone) await frame();
        const chosen = () => [...CSS.highlights.get("find-current")].map(String).concat(found.state.position);
        const steps = [chosen()];
        for (const step of ["next", "previous", "previous", "previous"]) {
            found[step]();
            await frame();
            steps.push(chosen());
        }
        const range = [...CSS.highlights.get("find-current")][0].getBoundingClientRect();
        const inView = range.top >= 0 && range.bottom <= innerHeight && range.width > 0;
        const marks = CSS.highlights.get("find").size;
        found.close();
        return {exact, states, steps, inView, marks, left: CSS.highlights.size};
    });
    assert.deepEqual(result, {exact: {count: 5, position: 5, isDone: true}, states: [{count: 8, position: 8, isDone: true}],
        steps: [["n-edle", 8], ["n-edle", 1], ["n-edle", 8], ["n-edle", 7], ["N-edle", 6]], inView: true, marks: 3, left: 0});
});

run("clear hides what is above, also in a running entry, and keeps it", async () => {
    assert.deepEqual(await evaluate(async () => {
        entry("one").end({isError: false});
        const two = entry("two");
        two.write("before", "output");
        view.clear();
        two.write("after\n", "output");
        await frame();
        const shown = view.region.innerText.trim();
        view.showCleared();
        await frame();
        return [shown, view.text(), view.region.innerText.includes("before")];
    }), ["after", "one\ntwo\nbeforeafter\n", true]);
});

run("what is read aloud is at most 25 lines of an entry", async () => {
    assert.deepEqual(await evaluate(async () => {
        const read = () => document.querySelector("[aria-live=polite]").textContent.split("\n");
        const one = entry();
        one.write("\x1b[31mName?\x1b[m ", "output");
        await frame();
        const first = read();
        one.write("x\n".repeat(1000), "output");
        await frame();
        return [first, read().length, read().at(-1)];
    }), [["Name? "], 25, "more output, not read"]);
}, {readAloud: true});
