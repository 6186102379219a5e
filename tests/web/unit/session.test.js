// What a session does with messages, without a page.

import assert from "node:assert/strict";
import {test} from "node:test";
import {imported} from "./modules.js";

const {Session, CodeQueue, Answers, History, corrected} = await imported(
    "session/Session.ts", "session/CodeQueue.ts", "session/Answers.ts", "session/History.ts", "rich/correction.ts");

class Memory extends Map {
    getItem = key => this.get(key) ?? null;
    setItem = (key, value) => this.set(key, value);
}

/** A session with a log, a connection and a window that write down what they are told. */
function made(waiting = []) {
    const told = [], sent = [];
    const entry = code => ({
        start: {code}, result: undefined, setNumber() {}, setLabel() {},
        write: (text, stream) => told.push(`${stream}: ${text}`), notice: text => told.push(`notice: ${text}`),
        end(result) { this.result = result; told.push(`end: ${result.isError}`); },
    });
    const log = {beginEntry: ({code}) => (told.push(`entry: ${code}`), entry(code)), notice: text => told.push(`notice: ${text}`), clear() {}, home() {}};
    const wire = {publish: (text, options) => new Promise((resolve, reject) => sent.push({text, ...options, resolve, reject})),
        interrupt: async () => void sent.push("interrupt"), activity: async () => undefined};
    const showing = {event: tag => told.push(`shows: ${tag}`), death: () => told.push("death"), suggestion: name => told.push(`meant: ${name}`)};
    const handlers = {onChange() {}, onWorkspace() {}, onReturned: text => told.push(`back: ${text}`)};
    const session = new Session(log, wire, showing, new CodeQueue(waiting, () => {}), new Answers(new Memory(), "answers", () => "server"), handlers);
    const take = (name, data, more = {}) => session.take({channel: name.startsWith("/") ? name : `/eval/response/${name}`, data, ...more});
    return {session, told, sent, take, ready: async () => (session.linkChanged({name: "open"}), session.caughtUp(), new Promise(resolve => setTimeout(resolve)))};
}

test("each prompt has its state", async () => {
    const {session, take, ready} = made();
    await ready();
    for (const [prompt, more, mode] of [
        ["NO_PROMPT", {}, "running"], ["INPUT_PROMPT", {prompt: 1}, "input"], ["INPUT_PROMPT", {prompt: 2, echo: false}, "password"],
        ["DEBUG_PROMPT", {prompt: 3}, "debugger"], ["KEYBOARD_PROMPT", {prompt: 4}, "keyboard"], ["PAUSE_PROMPT", {prompt: 5}, "pause"],
        ["BASE_PROMPT", {}, "idle"],
    ]) {
        take("iqminput", prompt, more);
        assert.equal(session.mode, mode, prompt);
    }
});

test("one piece of code is sent at a time, at the base prompt, and none for what is played again", async () => {
    const {session, sent, take, ready} = made(["kept"]);
    session.linkChanged({name: "open"});
    take("iqminput", "NO_PROMPT");
    take("iqminput", "BASE_PROMPT");
    assert.deepEqual(sent, []);
    await ready();
    session.run("next");
    assert.deepEqual(sent.map(({text, prompt}) => [text, prompt]), [["kept", 0]]);
    take("iqminput", "NO_PROMPT");
    take("iqminput", "BASE_PROMPT");
    assert.equal(sent.length, 1);
    take("completion", "Done: success", {request: sent[0].request});
    assert.equal(sent[1].text, "next");
});

test("what was not taken comes back, and what may have run does not", async () => {
    for (const [code, back] of [["429", ["back: x"]], ["disconnected", []]]) {
        const {session, sent, told, ready} = made();
        await ready();
        session.run("x");
        sent[0].reject(Object.assign(new Error("no"), {code}));
        await new Promise(resolve => setTimeout(resolve));
        assert.deepEqual(told.filter(text => text.startsWith("back")), back, code);
        assert.equal(told.some(text => text.includes("not known whether this has run")), code === "disconnected");
    }
});

test("a suggestion stands behind the error that it is about", async () => {
    const {session, told, take, ready} = made();
    await ready();
    const traceback = ["Traceback (most recent call last):", '  File "<eval 1>", line 1, in <module>', "NameError: name 'pritn' is not defined"];
    for (const hasEvent of [true, false]) {
        told.length = 0;
        take("error", `${traceback.join("\n")}\n`);
        take("suggest", "print");
        if (hasEvent) take("/eventmgr/0/error", {name: "NameError", value: "name 'pritn' is not defined", traceback});
        take("iqminput", "BASE_PROMPT");
        assert.deepEqual(told.slice(-2).map(text => text.split(" ")[0] + text.split(" ").at(-1).trim()),
            [hasEvent ? "shows:error" : "error:defined", "meant:print"]);
    }
    for (const [code, name, error, right] of [
        ["a = pritn(1)", "print", "name 'pritn' is not defined", "a = print(1)"],
        ["m = df.tempreture.mean()", "temperature", "'DataFrame' object has no attribute 'tempreture'", "m = df.temperature.mean()"],
        ["import scipy.optimise as o", "scipy.optimize", "No module named 'scipy.optimise'", "import scipy.optimize as o"],
        ["f()", "print", "name 'pritn' is not defined", "print"],
    ]) assert.equal(corrected(code, name, error), right);
});

test("an answer is shown where it was asked for, once it is taken, and a secret never", async () => {
    const {session, sent, told, take, ready} = made();
    await ready();
    for (const [number, more, text] of [[1, {}, "Ada"], [2, {echo: false}, "secret"], [3, {}, "too late"]]) {
        take("iqminput", "INPUT_PROMPT", {prompt: number, ...more});
        session.answer(text);
        session.answer("");  // Enter, pressed twice
        take("iqminput", "NO_PROMPT");
        take("output", "then ");
        assert.equal(told.filter(text => text === "output: then ").length, number - 1);
        assert.deepEqual([sent.at(-1).text, sent.at(-1).prompt, sent.length], [`${text}\n`, number, number]);
        if (number < 3) sent.at(-1).resolve();
        else sent.at(-1).reject(Object.assign(new Error("gone"), {code: "409"}));
        await new Promise(resolve => setTimeout(resolve));
    }
    assert.deepEqual(told.filter(text => !text.startsWith("entry")), ["output: Ada\n", "output: then ", `output: ${"\u2022".repeat(8)}\n`, "output: then ",
        'notice: The code does not wait for this answer any more: "too late" was not sent', "output: then "]);
});

test("an error takes the place of its text, and other text on standard error stays as it is", async () => {
    const traceback = ["Traceback (most recent call last):", "  File \"<eval 1>\", line 1, in <module>", "ValueError: no"];
    const error = ["/eventmgr/0/error", {name: "ValueError", value: "no", traceback}];
    const text = `${traceback.join("\n")}\n`;
    for (const [name, messages, expected] of [
        ["the error", [["error", text], error], ["shows: error"]],
        ["after a warning", [["error", `careful\n${text}`], error], ["error: careful\n", "shows: error"]],
        ["with variables between them", [["error", text], ["/eventmgr/0/workspace", {}], error], ["shows: error"]],
        ["in two parts", [["error", text.slice(0, 50)], ["error", text.slice(50)], error], ["shows: error"]],
        ["one that was caught", [["error", text], ["output", "on\n"]], [`error: ${text}`, "output: on\n"]],
        ["one in a log that goes on", [["error", text], ["error", "x".repeat(1 << 20)], ["error", "on\n"]], [`error: ${text}${"x".repeat(1 << 20)}`, "error: on\n"]],
        ["one without frames", [["error", "SyntaxError: no\n"], ["/eventmgr/0/error", {traceback: ["SyntaxError: no"]}]], ["error: SyntaxError: no\n"]],
    ]) {
        const {told, take} = made();
        for (const message of messages) take(...message);
        assert.deepEqual(told.filter(each => !each.startsWith("entry")), expected, name);
    }
});

test("a death ends what ran, and what waited comes back", async () => {
    const {session, told, take, ready} = made();
    await ready();
    session.run("crash()");
    session.run("after");
    take("/connector/interpreter", {life: 1, state: "ready", death: null});
    take("/connector/interpreter", {life: 1, state: "dead", death: {life: 1}});
    assert.equal(session.isBusy, false);
    session.run("next");
    take("/connector/interpreter", {life: 2, state: "ready", death: null});
    assert.deepEqual(told, ["entry: crash()", "death", "end: true", "back: after", "entry: next",
        "notice: The interpreter was started again: variables are gone"]);
    assert.equal(session.isBusy, true);
});

test("the history walks through what begins as the text does, and comes back to that", () => {
    const memory = new Memory(), history = new History(memory);
    for (const code of ["print(1)", "x = 1", "print(2)", "x = 1"]) history.add(code);
    assert.deepEqual([history.step(-1, "pr"), history.step(-1, "print(2)"), history.step(-1, "print(1)"), history.step(1, "print(1)"), history.step(1, "print(2)")],
        ["print(2)", "print(1)", undefined, "print(2)", "pr"]);
    for (let i = 0; i < 1100; ++i) history.add(`y = ${i}`);
    assert.equal(new History(memory).all.length, 1000);
    memory.set("numora.history", "{broken");
    assert.deepEqual(new History(memory).all, []);
});
