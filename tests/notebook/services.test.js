// The client library of notebook front ends against the gateway, in Node.js: two clients of one kernel.

import assert from "node:assert/strict";
import {after, before, test} from "node:test";
import WebSocket from "ws";
import {KernelManager, KernelSpecManager, ServerConnection, SessionManager} from "@jupyterlab/services";
import {CuttingProxy} from "../clients/proxy.js";
import {Server, token} from "../clients/server.js";
import {Mailbox, within} from "../clients/waiting.js";

// The library's polls keep their timers, of up to a minute, when they are disposed of. Nothing waits for these.
const setTimer = globalThis.setTimeout;
globalThis.setTimeout = (...call) => setTimer(...call).unref();

let server, proxy;

before(async () => {
    server = await Server.start();
    proxy = await CuttingProxy.start(server.port);
});
after(async () => {
    proxy.stop();
    await server.stop();
});

/** What a notebook page has: managers, and a session with its kernel. */
class Page {
    constructor(baseUrl) {
        const serverSettings = ServerConnection.makeSettings({baseUrl, token});
        this.kernels = new KernelManager({serverSettings});
        this.specs = new KernelSpecManager({serverSettings});
        this.sessions = new SessionManager({serverSettings, kernelManager: this.kernels});
    }

    async open(path) {
        await within(20_000, this.specs.ready, "the kernelspecs");
        const kernel = {name: this.specs.specs.default};
        this.session = await this.sessions.startNew({path, name: path, type: "notebook", kernel});
        await this.settle();
        return this;
    }

    get kernel() {
        return this.session.kernel;
    }

    settle() {
        return within(20_000, this.kernel.info, "the kernel's answer");
    }

    /** Runs a cell; `done` resolves with what it has brought. */
    run(code, answers = []) {
        const future = this.kernel.requestExecute({code, allow_stdin: true, stop_on_error: true});
        const cell = {future, text: "", outputs: [], prompts: []};
        const reached = new Map();
        /** Resolves when the cell has printed `text`. */
        cell.prints = text => within(20_000, new Promise(resolve => {
            reached.set(text, resolve);
            if (cell.text.includes(text)) resolve();
        }), text);
        future.onIOPub = ({header, content}) => {
            if (header.msg_type === "stream") cell.text += content.text;
            else if (!["status", "execute_input"].includes(header.msg_type)) cell.outputs.push({type: header.msg_type, ...content});
            for (const [text, resolve] of reached) if (cell.text.includes(text)) resolve();
        };
        // Without a promise, for which what comes next would wait.
        future.onStdin = ({header, content}) => {
            cell.prompts.push(content);
            Promise.resolve(answers.shift()).then(value => future.sendInputReply({status: "ok", value}, header));
        };
        cell.done = within(30_000, future.done, code).then(({content}) => Object.assign(cell, {reply: content}));
        return cell;
    }

    close() {
        for (const manager of [this.sessions, this.specs, this.kernels]) manager.dispose();
    }
}

/** Two pages with sessions of their own on one kernel. */
async function twoPages(t, baseUrl = server.origin) {
    const first = await new Page(baseUrl).open("one.ipynb");
    const second = new Page(baseUrl);
    second.session = await second.sessions.startNew({path: "two.ipynb", name: "", type: "notebook", kernel: {id: first.kernel.id}});
    assert.equal(second.kernel.id, first.kernel.id);
    await second.settle();
    t.after(async () => {
        for (const page of [second, first]) await page.session.shutdown();
        first.close();
        second.close();
    });
    return [first, second];
}

/** The statuses of a kernel, as they are told from now on. */
function changesOf(kernel) {
    const changes = new Mailbox("changes of the status");
    kernel.statusChanged.connect((_, status) => changes.push(status));
    return changes;
}

const untilStatus = (kernel, wanted) => within(20_000, new Promise(resolve => {
    const check = () => kernel.status === wanted && resolve();
    kernel.statusChanged.connect(check);
    check();
}), `status ${wanted}`);

test("text, results, displays and errors come to who asked, and to the other by the session", async t => {
    const [page, other] = await twoPages(t);
    const seen = [];
    other.kernel.anyMessage.connect((_, {msg, direction}) => direction === "recv" && seen.push(msg));
    const shown = page.run("from IPython.display import HTML, display\nprint('out')\ndisplay(HTML('<b>bold</b>'))\n6 * 7");
    const {text, outputs, reply} = await shown.done;
    assert.equal(text, "out\n");
    assert.deepEqual(outputs.map(({type, data}) => [type, data["text/html"] ?? data["text/plain"]]), [["display_data", "<b>bold</b>"], ["execute_result", "42"]]);
    assert.equal(outputs[1].execution_count, reply.execution_count);

    let answer;
    const failed = page.run("print('before')\ninput()\nundefined_name", [new Promise(resolve => (answer = resolve))]);
    const aborted = page.run("'aborted'");
    await page.kernel.requestKernelInfo();
    answer("");
    assert.deepEqual([(await failed.done).reply.ename, failed.outputs.at(-1).type, failed.text], ["NameError", "error", "before\n"]);
    assert.equal((await aborted.done).reply.status, "aborted");

    const parents = seen.filter(({header}) => header.msg_type === "stream").map(({parent_header}) => parent_header.session);
    assert.ok(parents.length >= 2 && parents.every(session => session === page.kernel.clientId));
});

test("input and passwords are asked from the client whose cell asks, and from no other", async t => {
    const [page, other] = await twoPages(t);
    const cell = page.run("import getpass\nname = input('Name? ')\npassword = getpass.getpass('Password? ')\nprint(name, password)", ["Ada", "secret"]);
    const {text, prompts} = await cell.done;
    assert.equal(text, "Ada secret\n");
    assert.deepEqual(prompts, [{prompt: "Name? ", password: false}, {prompt: "Password? ", password: true}]);
    const own = other.run("print(input('Whose? '))", ["mine"]);
    await own.done;
    assert.deepEqual([own.text, cell.prompts.length], ["mine\n", 2]);
});

test("what is asked beside a cell that runs is answered and leaves it busy, until an interrupt ends it", async t => {
    const pages = await twoPages(t);
    const [page, other] = pages;
    const cell = page.run("print('begun')\nwhile True: pass");
    await cell.prints("begun");
    const told = pages.map(({kernel}) => changesOf(kernel));
    for (const {kernel} of [page, other, other, page]) {
        const {content} = await within(20_000, kernel.requestComplete({code: "prin", cursor_pos: 4}), "a completion");
        assert.ok(content.matches.includes("print"));
        for (const changes of told) assert.deepEqual(await changes.take(2), ["idle", "busy"]);
    }
    await other.kernel.interrupt();
    assert.equal((await cell.done).reply.ename, "KeyboardInterrupt");
    for (const {kernel} of pages) await untilStatus(kernel, "idle");
});

test("native code that heeds no interrupt stays busy, and a restart ends it", async t => {
    const [page, other] = await twoPages(t);
    await page.run("kept = 1").done;
    const native = page.run("print('begun')\nsum(range(10**13))");
    native.done.catch(() => {});
    await native.prints("begun");
    await page.kernel.interrupt();
    await native.prints("The interrupted code is still running.");
    assert.equal(page.kernel.status, "busy");
    await within(30_000, page.kernel.restart(), "the restart");
    await page.settle();
    await untilStatus(other.kernel, "idle");
    assert.equal((await page.run("kept").done).reply.ename, "NameError");
    assert.equal((await other.run("print('again')").done).text, "again\n");
});

// As a relay of two consoles, of which one asks for something while the cell of the other runs.
test("code waits for a slow client, whichever of its sessions has sent last", async t => {
    const page = await new Page(server.origin).open("relay.ipynb");
    t.after(() => page.session.shutdown().finally(() => page.close()));
    const {wsUrl} = page.kernel.serverSettings;
    const socket = new WebSocket(`${wsUrl}api/kernels/${page.kernel.id}/channels?session_id=relay&token=${token}`);
    t.after(() => socket.terminate());
    const send = (msg_type, session, content) => socket.send(JSON.stringify({
        channel: "shell", header: {msg_id: msg_type, msg_type, session, username: "", date: "", version: "5.3"}, parent_header: {}, metadata: {}, content,
    }));
    const lines = 30_000;
    const text = {stdout: 0, stderr: ""};
    socket.on("open", () => send("execute_request", "one", {code: `for i in range(${lines}): print('x' * 1023)`}));
    await within(60_000, new Promise(resolve => socket.on("message", data => {
        const {header, content} = JSON.parse(data);
        if (header.msg_type === "execute_reply") resolve();
        if (header.msg_type !== "stream") return;
        if (text.stdout === 0) send("is_complete_request", "two", {code: "1"});
        if (content.name === "stderr") text.stderr += content.text;
        else text.stdout += content.text.length;
        socket.pause();
        setTimer(() => socket.resume(), 10);
    })), "the reply");
    assert.deepEqual(text, {stdout: lines * 1024, stderr: ""});
});

test("what is printed while a client is away comes on its return, once and in order, but for what was on its way", async t => {
    const [page, other] = await twoPages(t, proxy.url);
    const cell = page.run("import sys, time\nfor i in range(60):\n    print(i)\n    sys.stdout.flush()\n    time.sleep(.05)\ninput('end')", ["ok"]);
    const seen = other.run("1");
    await cell.prints("3\n");
    await proxy.cut();
    const {text, prompts, reply} = await cell.done;
    const numbers = text.trim().split("\n").map(Number);
    assert.ok(numbers.length > 55 && numbers.every((number, i) => i === 0 || number > numbers[i - 1]), text);
    assert.deepEqual([numbers[0], numbers.at(-1)], [0, 59]);
    assert.deepEqual([prompts.length, reply.status], [1, "ok"]);
    assert.equal((await seen.done).reply.status, "ok");
});
