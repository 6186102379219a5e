// Code in, output, prompts, stop.

import {expect, test} from "./console.js";

test("code runs, its value is shown, and an error leads to its line", async ({console, page}) => {
    expect(await console.run("for i in range(3): print(i)")).toBe("0\n1\n2\n");
    expect(await console.run("i, 'a'")).toBe("(2, 'a')\n");
    await console.run("import json\ndef f():\n    json.loads('{')\nf()");
    const error = console.log.locator(".error-view");
    await expect(error.locator("details[open]")).toHaveCount(2);
    await expect(error.locator("details:not([open])").first()).toContainText("json/__init__.py");
    await error.getByRole("button", {name: "line 3"}).click();
    expect(await page.evaluate(() => document.getSelection().toString())).toBe("    json.loads('{')");
    expect(await console.entries.last().getAttribute("class")).toContain("is-error");
    // Enter runs what is complete, and goes on with what is not.
    await expect(async () => {
        await console.type("if i:", "Enter");
        await expect(console.code.locator(".cm-line")).toHaveCount(2, {timeout: 2000});  // one line where the answer came too late
    }).toPass();
    await page.keyboard.insertText("print('deep')");
    await page.keyboard.press("Enter");
    await page.keyboard.press("Enter");
    await console.says("deep");
});

test("what is typed faster than the interpreter answers stands where it was meant", async ({console, page}) => {
    await page.route("**/FEval", async route => {
        await new Promise(resolve => setTimeout(resolve, 100));  // less than the page waits
        await route.continue();
    });
    await console.code.click();
    await page.keyboard.type("for i in range(2):\nprint('a', i)\nj = 10 * i\n\nprint(f'{j}')\nprint('c',\n'd')\n");
    await page.keyboard.type("draft");
    await console.says("10\n");
    await expect(console.entries).toHaveCount(3);
    await expect(console.entries.locator(".entry-code")).toHaveText(["for i in range(2):\n    print('a', i)\n    j = 10 * i", "print(f'{j}')", "print('c',\n'd')"]);
    await expect(console.code).toHaveText("draft");
});

test("prompts are answered where they are asked, and half a line of code comes back", async ({console, page}) => {
    await console.type("a = input('First\\nName? ')\nb = input('Age? ')\nprint(a, b)\nimport getpass\nprint(len(getpass.getpass()), 'read')");
    await console.is("asking");
    await expect(page.locator(".prompt-label")).toHaveText("First\nName? ");
    await expect(console.answer).toBeFocused();
    await console.send("Ada");
    await expect(page.locator(".prompt-label")).toHaveText("Age? ");
    await console.send("36");
    await expect(page.locator("input[type=password]")).toBeFocused();
    await console.send("geheimnis");
    await console.says("9 read");
    expect(await console.entries.last().locator(".entry-body").textContent())
        .toBe("First\nName? Ada\nAge? 36\nAda 36\nPassword: \u2022\u2022\u2022\u2022\u2022\u2022\u2022\u2022\n9 read\n");
    await expect(console.code).toBeFocused();
    const stored = await page.evaluate(() => JSON.stringify([{...localStorage}, {...sessionStorage}]) + document.documentElement.outerHTML);
    expect(stored).not.toContain("geheimnis");

    await page.keyboard.insertText("half = ");
    await console.page.evaluate(() => document.querySelector(".run").blur());
    await page.getByRole("tab", {name: "History"}).click();
    await page.getByRole("button", {name: /^a = input/}).focus();
    expect(await console.code.textContent()).toBe("half = ");
});

test("the debugger, the keyboard and a pause have fields of their own", async ({console, page}) => {
    await console.type("def g():\n    local = 5\n    breakpoint()\n    return local\ng()");
    await console.send("p local * 11");
    await console.says("55");
    await page.getByRole("button", {name: "Continue"}).click();
    await console.is("idle");
    await console.type("import numora\nk = 7\nnumora.keyboard()");
    await console.is("asking");
    await expect(page.locator(".symbol")).toHaveText("K>>");
    await console.type("print('k is', k)");
    await console.says("k is 7");
    await console.type("exit()");
    await console.is("idle");
    await console.type("numora.pause(); print('gone on')");
    await page.getByRole("button", {name: "Go on"}).click();
    await console.says("gone on");
    await console.is("idle");
});

test("code that is entered meanwhile waits in the page, and answers no prompt", async ({console, page}) => {
    await console.type("import time\ntime.sleep(1)\nx = input('Now? ')");
    await console.is("running");
    await console.type("print('second', x)");
    await console.type("print('third')");
    await page.locator(".queue").getByRole("button", {name: "Remove"}).last().click();
    await console.is("asking");
    await console.send("yes");
    await console.says("second yes");
    await console.is("idle");
    expect(await console.log.textContent()).not.toContain("third");
});

const loops = [["a loop", "while True: pass"], ["a sleep", "import time; time.sleep(100)"], ["a prompt", "input('? ')"],
    ["a flood", "while True: print('y' * 70)"]];
for (const [name, code] of loops) {
    test(`Stop ends ${name}, and gives the queue back to the editor`, async ({console, page}) => {
        await console.type(code);
        await expect(page.getByRole("button", {name: "Stop"})).toBeEnabled();
        if (name === "a prompt") await console.is("asking");
        else await console.type("print('kept')");
        await page.getByRole("button", {name: "Stop"}).click();
        await console.is("idle");
        await console.says("KeyboardInterrupt");
        if (name !== "a prompt") await expect(console.code).toHaveText("print('kept')");
        expect(await console.run("'after'")).toBe("'after'\n");
    });
}

test("completion and inspection work while code runs, and a late answer does not touch other text", async ({console, page}) => {
    await console.run("alphabet = 'abc'");
    await console.type("while True: pass");
    await console.is("running");
    await console.code.click();
    await page.keyboard.type("alph");
    await page.keyboard.press("Tab");
    await expect(page.locator(".cm-tooltip-autocomplete")).toContainText("alphabet");
    await page.keyboard.press("Tab");
    await expect(console.code).toHaveText("alphabet");
    await page.keyboard.press("Control+i");
    await expect(page.getByRole("tabpanel")).toContainText("alphabet: str");
    let isAsked = false, isLate = false;
    await page.route("**/FEval", async route => {
        if (!route.request().postData().includes("complete")) return route.continue();
        isAsked = true;
        await new Promise(resolve => setTimeout(resolve, 400));
        await route.continue().catch(() => {});
        isLate = true;
    });
    await console.code.click();
    await page.keyboard.press("Control+k");
    await page.keyboard.type("alphabet.upp");
    await page.keyboard.press("Tab");
    await expect.poll(() => isAsked).toBe(true);
    await page.keyboard.press("Control+k");
    await page.keyboard.type("#");
    await expect.poll(() => isLate).toBe(true);
    await expect(page.locator(".cm-tooltip-autocomplete")).toHaveCount(0);
    await expect(console.code).toHaveText("#");
    await page.keyboard.press("Control+.");
    await console.is("idle");
});

test("all is done by the keyboard", async ({console, page}) => {
    await console.run("first = 1");
    await console.run("print('ape')");
    await page.keyboard.type("pri");
    await page.keyboard.press("ArrowUp");
    await expect(console.code).toHaveText("print('ape')");
    await page.keyboard.press("ArrowDown");
    await expect(console.code).toHaveText("pri");
    await page.keyboard.press("Control+k");
    await page.keyboard.type("  ");
    await page.keyboard.press("Tab");
    await expect(console.code).toHaveText(/^ {6}$/);
    await page.keyboard.press("Escape");
    await page.keyboard.press("Tab");
    await expect(console.code).not.toBeFocused();
    for (const region of [".panels", "#header", ".log", ".input"]) {
        await page.keyboard.press("F6");
        if (region === ".panels" && (await page.locator(".input").evaluate(each => each.contains(document.activeElement)))) await page.keyboard.press("F6");
        expect(await page.locator(region).evaluate(each => each.contains(document.activeElement)), region).toBe(true);
    }
    await page.keyboard.press("Alt+ArrowUp");
    await expect(console.entries.last()).toBeFocused();
    await page.keyboard.press("Control+l");
    await expect(console.entries.first()).not.toBeVisible();
    await console.code.click();
    await page.keyboard.press("Control+r");
    await page.keyboard.type("first");
    await page.keyboard.press("Enter");
    await expect(console.code).toHaveText("first = 1");
    for (const [key, where] of [["Control+c", console.code], ["Control+.", console.log], ["Control+c", console.log]]) {
        await console.type("while True: pass", "Shift+Enter");
        await expect(console.code.locator(".cm-line")).toHaveCount(2);
        await page.keyboard.press("Control+Enter");
        await console.is("running");
        await where.focus();
        await page.keyboard.press("Escape");
        await console.is("running");
        await page.keyboard.press(key);
        await console.is("idle");
    }
    await page.keyboard.press("Alt+ArrowUp");
    await page.keyboard.press("Alt+ArrowUp");
    const focused = await page.evaluate(() => document.activeElement.ariaLabel);
    await page.keyboard.press("Alt+ArrowDown");
    expect(await page.evaluate(() => document.activeElement.ariaLabel)).not.toBe(focused);
    await page.getByRole("button", {name: "Menu"}).focus();
    await page.keyboard.press("Enter");
    await expect(page.locator("#menu")).toBeVisible();
    await page.keyboard.press("Escape");
    await expect(page.locator("#menu")).not.toBeVisible();
    await expect(page.getByRole("button", {name: "Menu"})).toBeFocused();
});
