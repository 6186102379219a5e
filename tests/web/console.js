// The console in Chromium against a server of its own. The program is at the path in the environment variable NUMORA, the
// page in the folder CONSOLE.

import {readFileSync} from "node:fs";
import {createRequire} from "node:module";
import {Server, token} from "../clients/server.js";

const required = createRequire(new URL("../../web/package.json", import.meta.url));
const {test: base, expect} = required("@playwright/test");
const axe = readFileSync(required.resolve("axe-core/axe.min.js"), "utf8");

export {Server, expect, token};
export const startServer = (port = 0, ...more) => Server.start(port, "--console", process.env.CONSOLE, ...more);

/** A page with the console, and what a test looks at in it. */
export class Console {
    /** What the browser complained about, its reports on the policy included. */
    complaints = [];
    /** Addresses that were requested from other places than the server. */
    strangers = [];
    #origins = [];

    constructor(page) {
        this.page = page;
        this.log = page.locator(".workbench:not([hidden]) .log");
        this.code = page.locator(".workbench:not([hidden]) .cm-content");
        this.answer = page.locator(".workbench:not([hidden]) .answer");
        this.state = page.locator("#header .state");
        page.on("console", message => message.type() !== "info" && this.complaints.push(message.text()));
        page.on("pageerror", error => this.complaints.push(error.message));
        page.on("request", request => {
            const url = request.url();
            if (!this.#origins.some(origin => url.startsWith(origin)) && !/^(data|blob):/.test(url)) this.strangers.push(url);
        });
    }

    async open(origin, path = `/?token=${token}`) {
        this.#origins.push(origin);
        await this.page.goto(origin + path);
        await this.code.waitFor();
        await this.is("idle");
    }

    /** Waits for the state of this name. */
    is(name) {
        return expect(this.page.locator(`#header .state[data-state=${name}]`)).toBeVisible();
    }

    async type(code, key = "Control+Enter") {
        await this.code.click();
        await this.page.keyboard.press("Control+k");
        await this.page.keyboard.insertText(code);
        await this.page.keyboard.press(key);
    }

    /** Runs code to its end, and returns what its entry shows. */
    async run(code) {
        const before = await this.entries.count();
        await this.type(code);
        await expect(this.entries).toHaveCount(before + 1);
        await this.is("idle");
        await expect(this.entries.last()).not.toHaveClass(/is-running/);
        return this.entries.last().locator(".entry-body").textContent();
    }

    get entries() {
        return this.log.locator(".entry:has(.entry-code)");
    }

    async says(text) {
        await expect(this.log).toContainText(text);
    }

    async send(text) {
        await this.answer.fill(text);
        await this.answer.press("Enter");
    }

    async menu(button) {
        if (!(await this.page.locator("#menu").isVisible())) await this.page.getByRole("button", {name: "Menu"}).click();
        await this.page.locator("#menu").getByRole("button", {name: button}).click();
    }

    /** What is wrong for those who do not see or point, as "rule: element". */
    async barriers() {
        if (!(await this.page.evaluate(() => "axe" in globalThis))) await this.page.evaluate(axe);
        return this.page.evaluate(async () => {
            const {violations} = await globalThis.axe.run(document, {resultTypes: ["violations"], runOnly: ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice"]});
            return violations.flatMap(({id, nodes}) => nodes.map(({html}) => `${id}: ${html.slice(0, 150)}`));
        });
    }
}

export const test = base.extend({
    server: async ({}, use) => {
        const server = await startServer();
        await use(server);
        await server.stop();
    },
    console: async ({page, server}, use) => {
        const console = new Console(page);
        await console.open(server.origin);
        await use(console);
        expect(console.complaints.filter(text => !console.expected?.test(text))).toEqual([]);
        expect(console.strangers).toEqual([]);
    },
});
