// What is printed: all of it is there, as it was printed, whatever its form and whatever happens meanwhile.

import {CuttingProxy} from "../clients/proxy.js";
import {expect, test} from "./console.js";

/** What the code prints as it is shown, and how many blocks of the log hold it at most. */
const forms = {
    "colours, tabs and pairs": ["print('\\x1b[31mred\\x1b[m\\ttab \\U0001F600 \\u00e9')", "red\ttab \u{1F600} \u00e9\n", 1],
    "a line that changes 100,000 times": ["for i in range(100_000): print(f'\\r{i} of 100000', end='', flush=True)", "99999 of 100000", 1],
    "a line of 10 MB": ["print('x' * 10_000_000)", `${"x".repeat(1e7)}\n`, 1300],
};
test("what is copied is what was printed, in few blocks", async ({console, page}) => {
    for (const [name, [code, text, blocks]] of Object.entries(forms)) {
        await console.run(code);
        const last = console.entries.last();
        expect(await last.locator(".block").count(), name).toBeLessThanOrEqual(blocks);
        await last.hover({position: {x: 5, y: 5}});
        await page.evaluate(() => navigator.clipboard.writeText(""));
        await last.getByRole("button", {name: "Copy output"}).click();
        await expect.poll(() => page.evaluate(async () => (await navigator.clipboard.readText()).length), name).toBe(text.length);
        expect(await page.evaluate(async text => await navigator.clipboard.readText() === text, text), name).toBe(true);
    }
});

test("100,000 lines are all there, and who reads or selects is not disturbed", async ({console, page}) => {
    await console.run("print('\\n'.join(f'begin {i}' for i in range(100)))");
    await console.type("for i in range(100_000): print('line', i)");
    await console.log.hover();
    await page.mouse.wheel(0, -1e7);
    await console.log.locator(".block").first().click({clickCount: 2, position: {x: 10, y: 8}});
    const selected = () => page.evaluate(() => document.getSelection().toString());
    expect(await selected()).toBe("begin");
    await expect(page.locator(".new-lines")).toBeVisible();
    await console.is("idle");
    expect(await selected()).toBe("begin");
    await expect(console.entries.first()).toBeInViewport();
    await page.locator(".new-lines").click();
    await console.log.focus();
    await page.keyboard.press("Control+f");
    await page.getByLabel("Find in the log").fill("line 7777");
    for (const [key, text] of [["Shift", "11 of 11"], ["Enter", "1 of 11"], ["F3", "2 of 11"], ["Shift+F3", "1 of 11"]]) {
        await page.keyboard.press(key);
        await expect(page.getByRole("status"), key).toHaveText(text);
    }
    await page.keyboard.press("Escape");
    await expect(console.code).toBeFocused();
    const lines = await page.locator(".log .entry-body").last().textContent();
    expect(lines).toBe(Array.from({length: 100_000}, (_, i) => `line ${i}\n`).join(""));
});

test("a flood goes on where it was cut, and what was lost is named where it is missing", async ({console, server, page}) => {
    console.expected = /WebSocket|ERR_|Failed to load/;
    const proxy = await CuttingProxy.start(server.port);
    await console.open(proxy.url, "/");
    await console.type("for i in range(200_000): print('line', i)");
    for (let i = 0; i < 3; ++i) {
        await console.says("line");
        await proxy.cut();
    }
    await console.says("line 199999");
    await console.is("idle");
    const numbers = (await console.entries.last().locator(".entry-body").textContent()).match(/(?<=line )\d+/g).map(Number);
    expect(numbers.every((number, i) => i === 0 || number > numbers[i - 1])).toBe(true);
    if (numbers.length < 200_000) await expect(console.log.locator(".notice").first()).toContainText(/dropped here|not kept/);

    // Of which the server keeps the end.
    await page.reload();
    await console.says("line 199999");
    await console.is("idle");
    await console.run("for i in range(200_000): print('row', i, 'x' * 30)");
    await page.reload();
    await expect(console.log.locator(".notice").first()).toContainText(/MB not kept by the server/);
    await console.says("row 199999");
    expect(await console.run("1 + 1")).toBe("2\n");
    proxy.stop();
});
