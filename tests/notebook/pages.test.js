// Pages with notebooks in Chromium: two of them at a time.

import assert from "node:assert/strict";
import {once} from "node:events";
import {readFile} from "node:fs/promises";
import {createServer} from "node:http";
import {join} from "node:path";
import {after, before, test} from "node:test";
import {chromium} from "playwright-core";
import {Server, token} from "../clients/server.js";
import {NotebookServer} from "./notebookServer.js";

const limit = 30_000;
const pageLibrary = new URL("node_modules/package/lib/", import.meta.url);
let browser;

before(async () => {
    browser = await chromium.launch({executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium"});
});
after(() => browser.close());

async function startServer(t, ...options) {
    const server = await Server.start(...options);
    t.after(() => server.stop());
    return server;
}

async function open(t, url) {
    const page = await browser.newPage({viewport: {width: 1000, height: 900}});
    page.setDefaultTimeout(limit);
    t.after(() => page.close());
    await page.goto(url);
    return page;
}

async function picture(page, name) {
    if (process.env.OUTPUT) await page.screenshot({path: join(process.env.OUTPUT, `${name}.png`)});
}

const cells = [
    "import pandas\nprint('text of', __name__)",
    "pandas.DataFrame({'a': [1, 2], 'b': ['x', 'y']})",
    "name = input('Name? ')\nprint('Hello', name)",
    "undefined_name",
];

/** Runs all cells of a notebook in a page, and answers its question. */
async function work(t, notebooks, name) {
    const page = await open(t, notebooks.write(`${name}.ipynb`, cells));
    await page.locator("#kernel_indicator_icon.kernel_idle_icon").waitFor();
    await page.locator("#celllink").click();
    await page.locator("#run_all_cells").click();
    const answer = page.locator(".raw_input");
    await answer.waitFor();
    await answer.fill(name);
    await answer.press("Enter");
    await page.getByText("NameError").first().waitFor();
    await picture(page, name);
    assert.equal(await page.locator(".output_subarea.output_stdout").first().innerText(), "text of __main__\n");
    assert.deepEqual(await page.locator(".output_html table td").allInnerTexts(), ["1", "x", "2", "y"]);
    assert.match(await page.locator(".cell").nth(2).locator(".output").innerText(), new RegExp(`Name\\? ${name}\\s+Hello ${name}`));
    assert.equal(await page.locator(".cell").nth(3).locator(".output_error").count(), 1);
}

async function bothWork(t, notebooks, name) {
    t.after(() => notebooks.stop());
    try {
        await Promise.all([work(t, notebooks, `${name}1`), work(t, notebooks, `${name}2`)]);
    } catch (error) {
        console.error(notebooks.log.join("\n"));
        throw error;
    }
}

test("notebooks run with kernels of their own", async t => bothWork(t, await NotebookServer.start({kernel: []}), "own"));

test("notebooks run with the kernels of a server", async t => {
    const server = await startServer(t);
    const options = [`--gateway-url=${server.origin}`, `--GatewayClient.auth_token=${token}`];
    await bothWork(t, await NotebookServer.start({options}), "gateway");
});

/** A page from elsewhere, with cells and what runs them. */
async function servePage(t) {
    const page = `<!DOCTYPE html><meta charset="utf-8"><title>Cells</title>
<pre data-executable="true" data-language="python">import pandas\nprint("text of", __name__)</pre>
<pre data-executable="true" data-language="python">pandas.DataFrame({"a": [1, 2], "b": ["x", "y"]})</pre>
<script src="/index.js"></script>`;
    const types = {css: "text/css", js: "text/javascript"};
    const files = createServer(async ({url}, response) => {
        const name = new URL(url, "http://page").pathname.slice(1);
        const body = name ? await readFile(new URL(name, pageLibrary)).catch(() => null) : page;
        response.writeHead(body === null ? 404 : 200, {"Content-Type": types[name.split(".").at(-1)] ?? "text/html"}).end(body);
    }).listen(0, "127.0.0.1");
    await once(files, "listening");
    t.after(() => files.close());
    return `http://127.0.0.1:${files.address().port}`;
}

test("a page from elsewhere runs its cells", async t => {
    const origin = await servePage(t);
    const server = await startServer(t, 0, "--allow-origin", origin);
    const page = await open(t, origin);
    await page.evaluate(([baseUrl, token]) => window.thebe.bootstrap({
        useBinder: false, requestKernel: true,
        serverSettings: {baseUrl, wsUrl: baseUrl.replace("http", "ws"), token},
    }), [server.origin, token]);
    await page.locator(".thebe-runall-button").first().click();
    await page.locator("table td").first().waitFor();
    await picture(page, "page");
    assert.match(await page.locator(".thebe-output").first().innerText(), /text of __main__/);
    assert.deepEqual(await page.locator("table td").allInnerTexts(), ["1", "x", "2", "y"]);
});
