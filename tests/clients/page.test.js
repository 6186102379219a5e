// Pages in the folder of the console, in a browser, which is at the path in the environment variable CHROMIUM.

import assert from "node:assert/strict";
import {cp, mkdtemp, rm, writeFile} from "node:fs/promises";
import {tmpdir} from "node:os";
import {after, before, test} from "node:test";
import {chromium} from "playwright-core";
import {examplesIn} from "./readme.js";
import {Server, token} from "./server.js";

const shell = `<!DOCTYPE html><meta charset="utf-8"><textarea id="code"></textarea><button id="run"></button>
<button id="stop"></button><pre id="text"></pre><script type="module" src="cometd.js"></script>`;

// As a user of the library would write it, who knows the channels.
const script = `import {CometD} from "./cometd/cometd.js";
const [code, run, stop, text] = ["code", "run", "stop", "text"].map(id => document.getElementById(id));
const cometd = new CometD();
cometd.configure({url: new URL("cometd", document.baseURI).href, logLevel: "warn"});
const respond = {
    output: data => text.append(data),
    iqminput: (data, {ext}) => ext.connector.prompt && cometd.publish("/eval/request", prompt("Input") + "\\n",
        {ext: {connector: {request: "typed", prompt: ext.connector.prompt}}}),
    completion: (data, {ext}) => ext.connector.request === "mine" && text.append(data === "Done: success" ? "done\\n" : "failed\\n"),
};
cometd.handshake(({successful}) => successful && cometd.subscribe("/eval/response/*",
    message => respond[message.channel.split("/").pop()]?.(message.data, message),
    () => run.onclick = () => cometd.publish("/eval/request", code.value, {ext: {connector: {request: "mine", prompt: 0}}})));
stop.onclick = () => cometd.remoteCall("connector/v1/Interrupt", {uuid: "stop"}, () => {});`;

let folder, server, browser;
before(async () => {
    folder = await mkdtemp(`${tmpdir()}/numora-console-`);
    const [[index], [, page]] = [await examplesIn("html"), await examplesIn("js")];
    const files = {"index.html": index, "page.js": page, "cometd.html": shell, "cometd.js": script, "favicon.ico": ""};
    for (const [name, text] of Object.entries(files)) await writeFile(`${folder}/${name}`, text);
    await cp("../../clients/typescript/dist/browser.js", `${folder}/numora-client.js`);
    await cp("node_modules/cometd", `${folder}/cometd`, {recursive: true});
    server = await Server.start(0, "--console", folder);
    browser = await chromium.launch({executablePath: process.env.CHROMIUM});
});
after(async () => {
    await browser?.close();
    await server?.stop();
    await rm(folder, {recursive: true});
});

for (const [client, path] of [["our client", ""], ["plain CometD", "cometd.html"]]) {
    test(`a page with ${client} streams, answers a prompt and interrupts`, {timeout: 60_000}, async () => {
        const context = await browser.newContext();
        const page = await context.newPage();
        const complaints = [];
        page.on("console", message => complaints.push(message.text()));
        page.on("pageerror", error => complaints.push(error.message));
        page.on("dialog", dialog => dialog.accept("Ada"));
        await page.goto(`${server.origin}/?token=${token}`);
        await page.waitForURL(`${server.origin}/`);  // to which that page leads
        if (path) await page.goto(`${server.origin}/${path}`);

        const text = async (code, wanted, meanwhile = () => {}) => {
            await page.waitForFunction(() => document.getElementById("run").onclick);
            await page.locator("#text").evaluate(element => (element.textContent = ""));
            await page.fill("#code", code);
            await page.click("#run");
            await meanwhile();
            await page.waitForFunction(text => document.getElementById("text").textContent.endsWith(text), wanted);
            return page.textContent("#text");
        };
        assert.equal(await text("print('Hello', input('Name? '))", "done\n"), "Name? Hello Ada\ndone\n");
        const shown = text => page.waitForFunction(text => document.getElementById("text").textContent.includes(text), text);
        await text("import time\nprint('begun', flush=True)\ntime.sleep(60)", "failed\n", async () => {
            await shown("begun");
            await page.click("#stop");
        });
        assert.deepEqual(complaints, []);
        await context.close();
    });
}
