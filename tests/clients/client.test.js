// The client of clients/typescript.

import assert from "node:assert/strict";
import {after, before, describe, test} from "node:test";
import {connect} from "../../clients/typescript/dist/index.js";
import {CuttingProxy} from "./proxy.js";
import {Server, token} from "./server.js";
import {within} from "./waiting.js";

const limits = {timeout: 60_000};
let server, client;
before(async () => {
    server = await Server.start();
    client = await connect(`${server.origin}/?token=${token}`, {retryMs: 50});
});
after(async () => {
    await client.close();
    await server.stop();
});

// The end of `go.wait()` is in the test's hands.
const waitable = "import threading\ngo = threading.Event()";

async function behindProxy(t, transport = undefined) {
    const proxy = await CuttingProxy.start(server.port);
    const client = await connect(proxy.url, {token, transport, retryMs: 20});
    t.after(() => proxy.stop());
    t.after(() => client.close());
    return {proxy, client};
}

/** Cuts a client off and lets its session end. It stays cut off. */
async function endSession(proxy, client) {
    const clientId = client.session.cometd.getClientId();
    proxy.refuses = true;
    proxy.cut().catch(() => {});
    const answer = await fetch(server.url, {
        method: "POST",
        headers: {Authorization: `Bearer ${token}`, "Content-Type": "application/json"},
        body: JSON.stringify([{id: "1", channel: "/meta/disconnect", clientId}]),
    });
    assert.ok((await answer.json()).at(-1).successful);
}

/** What a stream brings whose session ends before `code` runs and `others` do, over connections with `cuts`. */
async function throughDeadSession(t, code, {cuts = [], others = "0"} = {}) {
    const {proxy, client: away} = await behindProxy(t);
    await client.eval(waitable);
    const stream = away.stream(`print('first', end='')\ngo.wait()\n${code}`);
    const begin = [];
    do begin.push((await stream.next()).value); while (begin.at(-1).text !== "first");
    await endSession(proxy, away);
    await client.call("go.set", [], {nargout: 0, dequeMode: "ppe"});
    await textOf(client.stream(others));
    proxy.cuts.push(...cuts);
    proxy.refuses = false;
    const events = await textOf(stream);
    assert.deepEqual(proxy.cuts, []);
    return events;
}

async function textOf(stream) {
    const events = [];
    for await (const event of stream) events.push(event);
    const text = events.map(event => (event.stream === "output" ? event.text : "")).join("");
    return {text, others: events.filter(({type}) => type !== "text")};
}

describe("requests", limits, () => {
    test("eval brings the text, and says whether the code has failed", async () => {
        const {text, isError, promptType} = await client.eval("print('ü')\n6 * 7");
        assert.deepEqual({text, isError, promptType}, {text: "ü\n42\n", isError: false, promptType: 0});
        assert.ok((await client.eval("1 / 0")).isError);
    });

    test("call brings as many results as are wanted", async () => {
        assert.equal(await client.call("numpy.linalg.det", [[[2, 0], [0, 3]]]), 6);
        assert.deepEqual(await client.call("divmod", [7, 2], {nargout: 2}), [3, 1]);
        assert.equal(await client.call("print", ["unseen"], {nargout: 0}), undefined);
    });

    const failures = {
        "a fault": [() => client.call("no_such_function"), {code: "NUMORA.CodeError", message: "NameError: there is no function named 'no_such_function'"}],
        "a time limit": [() => client.call("time.sleep", [30], {timeoutMs: 50}), {code: "Request.Timeout"}],
        "a channel of the server's": [() => client.publish("/eventmgr/0/x", 1), {code: "403"}],
        "a bad channel": [() => client.subscribe("/a/*/", () => {}), {code: "405"}],
        "a wrong token": [() => connect(server.origin, {token: "x".repeat(20)}), {code: "401"}],
        "no server": [() => connect("http://127.0.0.1:1/lab", {token}),
            {code: "disconnected", message: /^no server can be reached at http:\/\/127.0.0.1:1\/lab\/cometd: .*ECONNREFUSED/}],
        "no server at the path": [() => connect(`${server.origin}/lab`, {token}), {code: "disconnected", message: /response: 401/}],
        "an address of another kind": [() => connect("localhost:8350"), {code: "invalid", message: /^url must be/}],
        "a transport that is not there": [() => connect(server.origin, {transport: "long-polling"}), {code: "invalid", message: /^transport must be/}],
        "code that is too long": [() => client.eval("x".repeat(16 << 20)), {code: "invalid", message: /^a message must not be longer/}],
        "a value that is no JSON": [() => client.publish("/news", 10n), {code: "invalid", message: /^what is sent must be JSON values/}],
        "a name that is no channel": [() => client.publish("news", 1), {code: "invalid", message: /^channel must be/}],
    };
    for (const [name, [request, error]] of Object.entries(failures)) {
        test(`${name} is an exception`, () => assert.rejects(request(), {name: "NumoraError", ...error}));
    }
});

describe("streams", limits, () => {
    test("events come in their order, and input is answered", async () => {
        const stream = client.stream("import sys; print('first'); print('noted', file=sys.stderr)\n"
            + "print('Hello', input('Name? '))\nprinnt");
        const told = [];
        for await (const event of stream) {
            if (event.type === "input") await stream.input("Ada");
            // How text is divided is the server's business.
            if (event.type === "text" && told.at(-1)?.[0] === event.stream) told.at(-1)[1] += event.text;
            else if (event.type !== "prompt") told.push([event.stream ?? event.type, event.text ?? event.success]);
        }
        // Its prompt is gone: it would run as code.
        await assert.rejects(stream.input("late = 1"), {code: "409"});
        assert.match(told.splice(5, 1).join(), /^error,Traceback[^]*NameError/);
        assert.deepEqual(told, [["output", "first\n"], ["error", "noted\n"], ["output", "Name? "], ["input", undefined],
            ["output", "Hello Ada\n"], ["suggestion", "print"], ["completion", false]]);
    });

    test("a slow reader loses nothing, and little waits for it", async () => {
        const stream = client.stream("for i in range(450): print(f'{i:09}' * 10_000)");
        let text = "";
        for await (const event of stream) {
            text += event.text ?? "";
            assert.ok(client.session.room.waiting < 16e6, `${client.session.room.waiting} characters wait`);
            // The answer comes after what has not been read.
            if (text.length === 90_001) await client.call("len", ["abc"], {dequeMode: "ppe"});
            await new Promise(resolve => setTimeout(resolve, 2));
        }
        assert.equal(text, Array.from({length: 450}, (_, i) => `${i}`.padStart(9, "0").repeat(10_000) + "\n").join(""));
    });

    test("nothing is lost or doubled when the session has ended meanwhile", async t => {
        // Among them are some that let the reply to the handshake through, and then not the request to subscribe, not
        // its reply, or not all that follows.
        const cuts = Array.from({length: 7}, (_, i) => [100 + 40 * i, {up: 300 + 40 * i}]).flat();
        const {text, others} = await throughDeadSession(t, `import time
for i in range(300):
    print(f'{i:04}' * 2500)
    time.sleep(0.002)`, {cuts});
        assert.equal(text, Array.from({length: 300}, (_, i) => `${i}`.padStart(4, "0").repeat(2500) + "\n").join(""));
        assert.deepEqual(others, [{type: "prompt", prompt: "BASE_PROMPT"}, {type: "completion", success: true}]);
    });

    test("what the server did not keep is a gap", async t => {
        const {text, others} = await throughDeadSession(t, `import time
for i in range(40):
    print(('x' * 999 + chr(10)) * 500, end='')
    time.sleep(0.01)  # ends a batch of text
print('last')`);
        const missing = 40 * 500 * 1000 + "last\n".length - text.length;
        const [gap] = others;
        assert.equal(gap.type, "gap");
        assert.ok(missing > 0 && gap.to >= gap.from && gap.bytes >= missing, `${missing} ${JSON.stringify(gap)}`);
        assert.ok(text.endsWith("last\n"));
        assert.equal(others.at(-1).type, "completion");
    });

    test("a completion that the server did not keep is an error", async t => {
        const news = setInterval(() => client.publish("/eval/request", "0"), 100);  // or it takes 25 seconds
        t.after(() => clearInterval(news));
        await assert.rejects(throughDeadSession(t, "", {others: "import numora\nfor i in range(10_000): numora.clc()"}),
            {code: "disconnected", message: /^the code has ended while there was no session/});
    });

    test("a request whose session has ended fails, and the client goes on", async t => {
        const {proxy, client: away} = await behindProxy(t);
        await client.eval(waitable);
        const waits = assert.rejects(away.eval("go.wait()"), {code: "disconnected"});
        await away.publish("/sent", 1);  // and so the request before it
        await endSession(proxy, away);
        proxy.refuses = false;
        await within(20_000, waits, "failure");
        await client.call("go.set", [], {nargout: 0, dequeMode: "ppe"});
        assert.equal((await away.eval("'here'")).text, "'here'\n");
    });

    test("a session that ended before any message had come misses none", async t => {
        const {proxy, client: away} = await behindProxy(t);
        const messages = away.on(["/eval/response/output", "/eval/response/completion"]);
        const values = Promise.all([messages.next(), messages.next()]);
        await away.publish("/sent", 1);  // and so the subscription before it
        await endSession(proxy, away);
        await textOf(client.stream("print('meanwhile')"));
        let isFirst = true;  // request to subscribe again: it is refused
        const mapFirst = act => message => (message.channel === "/meta/subscribe" && isFirst && act(message), message);
        away.session.cometd.registerExtension("test", {
            outgoing: mapFirst(message => (message.subscription = [])),
            incoming: mapFirst(() => (isFirst = false, proxy.cut().catch(() => {}))),
        });
        proxy.refuses = false;
        // The next try may come with the reply to a connect that is held for 25 seconds.
        const channels = (await within(60_000, values, "messages")).map(({value}) => value.channel);
        assert.deepEqual(channels, ["/eval/response/output", "/eval/response/completion"]);
    });

    test("a new page goes on after the last message that the old one had", async () => {
        const first = await connect(server.origin, {token});
        const messages = first.on("/eval/response/completion");
        await textOf(first.stream("print('old')"));
        const {value: {number: known}} = await messages.next();
        await first.close();
        await textOf(client.stream("print('meanwhile')"));

        const second = await connect(server.origin, {token});
        const seen = [];
        for await (const {channel, data} of second.on("/eval/response/**", {after: known})) {
            seen.push(data);
            if (channel.endsWith("completion")) break;
        }
        assert.deepEqual(seen, ["NO_PROMPT", "meanwhile\n", "BASE_PROMPT", "Done: success"]);
        await second.close();
    });
});

test("the state of the connection is told", limits, async t => {
    const proxy = await CuttingProxy.start(server.port), states = [];
    t.after(() => proxy.stop());
    const watched = await connect(proxy.url, {token, retryMs: 20, onState: state => states.push(state)});
    t.after(() => watched.close());
    // A cut between two connects is made good before it is noticed.
    while (!states.some(({name}) => name === "lost")) {
        await proxy.cut();
        await watched.eval("1");
    }
    await watched.close();
    assert.match(states.map(({name}) => name).join(" "), /^open( lost open)+ ended$/);
    assert.equal(new Set(states.filter(({name}) => name === "open").map(({server}) => server)).size, 1);
    assert.deepEqual(states.at(-1), {name: "ended", error: undefined});
});

test("an interpreter that dies ends what was under way, and its client goes on", limits, async t => {
    const {id} = await client.createInterpreter({env: {LAB: "one"}});
    const lab = await client.interpreter(id);
    t.after(() => lab.close());
    const died = {name: "InterpreterDied", code: "502", cause: "signal", detail: "SIGABRT", life: 1};
    const stream = lab.stream("import os\nprint('first', os.environ['LAB'])\ninput()\nos.abort()");
    const told = [];
    let waiting;
    await assert.rejects(async () => {
        for await (const event of stream) {
            if (event.type === "text") told.push(event.text);
            if (event.type !== "input") continue;
            waiting = assert.rejects(lab.call("print"), died);
            await stream.input("");
        }
    }, died);
    assert.deepEqual(told, ["first one\n"]);
    await waiting;
    assert.equal((await lab.eval("'here'")).text, "'here'\n");
    assert.match((await lab.deaths())[0].request.code, /os\.abort/);
    await assert.rejects(lab.restart({life: 1}), {code: "409"});
    assert.equal((await lab.restart({force: true, life: 2})).life, 3);
    await client.deleteInterpreter(id);
    assert.ok(!(await client.interpreters()).some(each => each.id === id));
    await assert.rejects(lab.eval("1"));  // it may not know yet that the connection is lost
    await assert.rejects(lab.eval("1"), {code: "404", message: `There is no interpreter "${id}".`});
});

// Bytes after which connections are cut: before an answer, within its head, within a frame, and later.
const cuts = [200, 0, 2_000, 70, 0, 500, 3_000, {up: 350}, 0, 1_000];
for (const transport of ["websocket", "long-polling"]) {
    test(`nothing is lost or doubled over ${transport} through a connection that is cut`, limits, async t => {
        if (transport === "long-polling") (await import("cometd-nodejs-client")).adapt();  // as in a browser
        const {proxy, client} = await behindProxy(t, transport);
        // Slow enough that each connection brings a part of it.
        const stream = client.stream("import time\nfor i in range(1500):\n    print(i)\n    time.sleep(0.001)");
        await stream.next();
        proxy.cuts.push(...cuts);
        const {text, others} = await textOf(stream);
        assert.equal(text, Array.from({length: 1500}, (_, i) => `${i}\n`).join(""));
        assert.deepEqual(others.at(-1), {type: "completion", success: true});
        assert.deepEqual(proxy.cuts, []);
    });
}
