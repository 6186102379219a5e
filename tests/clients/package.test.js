// The package of the client, installed from its tarball into a project.

import assert from "node:assert/strict";
import {execFile} from "node:child_process";
import {mkdtemp, rm, writeFile} from "node:fs/promises";
import {tmpdir} from "node:os";
import {after, before, test} from "node:test";
import {promisify} from "node:util";
import {examplesIn} from "./readme.js";
import {Server, token} from "./server.js";

const client = "../../clients/typescript";
let project;
const run = async (program, options, cwd = project) =>
    (await promisify(execFile)(program, options, {cwd, timeout: 60_000})).stdout;

before(async () => {
    project = await mkdtemp(`${tmpdir()}/numora-project-`);
    // Built before, and used by other tests now.
    const [{filename, files}] = JSON.parse(await run("npm", ["pack", "--json", "--ignore-scripts", "--pack-destination", project], client));
    const strange = files.map(({path}) => path).filter(path => !/^(package\.json|README\.md|dist\/(\w+(\.d)?\.[jt]s|LICENSE-\w+))$/.test(path));
    assert.deepEqual(strange, []);
    await writeFile(`${project}/package.json`, `{"type": "module"}`);
    await run("npm", ["install", "--prefer-offline", "--no-audit", "--no-fund", filename]);
});
after(() => rm(project, {recursive: true}));

test("the example for Node.js runs in it", {timeout: 60_000}, async t => {
    const server = await Server.start();
    t.after(() => server.stop());
    const [example] = await examplesIn("js");
    await writeFile(`${project}/example.js`, example.replace(/http:.*token=\.\.\./, `${server.origin}/?token=${token}`));
    const text = await run(process.execPath, ["example.js"]);
    assert.match(text, /^42\n\n6\n[^]*Hello Ada[^]*type: 'completion', success: true/);
});

test("TypeScript knows what each event has", {timeout: 60_000}, async () => {
    await writeFile(`${project}/typed.ts`, `import {type StreamEvent, connect} from "numora-client";
import * as browser from "numora-client/browser";
export const same: typeof connect = browser.connect;
export const length = (event: StreamEvent): number => event.type === "text" ? event.text.length : event.type === "input" ? event.number : 0;
// @ts-expect-error: only text has it
export const wrong = (event: StreamEvent) => event.text;`);
    await run(`${process.cwd()}/${client}/node_modules/.bin/tsc`, ["--noEmit", "--strict", "--module", "nodenext", "--target", "es2022", "typed.ts"]);
});
