// Reloads, lost connections, servers and interpreters that end, several pages.

import {once} from "node:events";
import {createServer, request as forward} from "node:http";
import {connect, createServer as createSlow} from "node:net";
import {CuttingProxy} from "../clients/proxy.js";
import {Console, Server, expect, startServer, test, token} from "./console.js";

test("a reload brings code, output, prompt and what waits", async ({console, page}) => {
    await console.run("print('early')");
    await console.type("x = input('Name? ')\nimport time\nprint('begun', x)\ntime.sleep(3)\nprint('ended')");
    await console.is("asking");
    await page.reload();
    await expect(page.locator(".prompt-label")).toHaveText("Name? ");
    await console.says("print('early')");
    await console.send("Ada");
    await console.says("begun Ada");
    await console.type("print('queued')");
    await page.keyboard.insertText("draft");
    await page.reload();
    await console.says("Name? Ada");
    await expect(console.code).toHaveText("draft");
    await console.says("ended");
    await expect(console.entries).toHaveCount(3);
    await expect(console.entries.last().locator(".entry-body")).toHaveText("queued");
});

test("over a slow connection a reload shows all in its order, and what waits goes on waiting", async ({console, page, server}) => {
    const proxy = createSlow(client => {
        const target = connect(server.port, "127.0.0.1").on("error", () => client.destroy()).on("close", () => client.destroy());
        client.on("error", () => target.destroy()).on("close", () => target.destroy()).pipe(target);
        target.on("data", data => {
            client.write(data);
            target.pause();
            setTimeout(() => target.resume(), data.length / 1000);  // 1 MB/s
        });
    }).listen(0, "127.0.0.1");
    await once(proxy, "listening");
    await console.open(`http://127.0.0.1:${proxy.address().port}`);
    await console.run("for i in range(30_000): print('line', i, 'x' * 50)");
    await console.type("while True: pass");
    await console.type("print('queued')");
    await page.reload();
    await console.says("line 29999 ");
    await expect(console.entries.locator(".entry-code")).toHaveText([/^for i/, "while True: pass"]);
    await expect(page.locator(".queue")).toContainText("queued");
    await page.getByRole("button", {name: "Stop"}).click();
    await console.is("idle");
    proxy.close();
});

test("a lost connection is told, and nothing is lost or sent twice", async ({console, page, server}) => {
    console.expected = /WebSocket|ERR_|Failed to load/;
    const proxy = await CuttingProxy.start(server.port);
    await console.open(proxy.url, "/");
    await console.type("import time\nfor i in range(40):\n    print('line', i)\n    time.sleep(0.1)");
    await console.says("line 3");
    await proxy.cut();
    await console.says("line 39");
    await console.is("idle");
    expect((await console.entries.last().locator(".entry-body").textContent()).match(/line \d+/g)).toHaveLength(40);
    proxy.refuses = true;
    proxy.cut().catch(() => {});
    await expect(console.state).toContainText("Connection lost, trying again");
    await console.type("print('sent', 'later')");
    await expect(page.locator(".queue")).toContainText("waits for the connection");
    proxy.refuses = false;
    await console.says("sent later");
    await expect(console.entries.filter({hasText: "sent"})).toHaveCount(1);
    proxy.stop();
});

test("a server that is started again is noticed, and one with another token refuses", async ({console, server, page}) => {
    console.expected = /WebSocket|ERR_|Failed to load/;
    await console.run("x = 1");
    await server.stop();
    let next = await startServer(server.port);
    await console.says("The server was started again");
    await console.says("x = 1");
    expect(await console.run("'x' in globals()")).toBe("False\n");
    await next.stop();
    server.stop = async () => {};
    next = await Server.start(server.port, "--token", "another-token-of-the-tests", "--console", process.env.CONSOLE);
    await expect(console.state).toContainText("another token");
    await next.stop();
    await expect(console.log).toContainText("x = 1");
});

test("the death of an interpreter is told where it happened, and work goes on", async ({console, page}) => {
    await console.run("x = 5");
    await expect(page.getByRole("tabpanel")).toContainText("int");
    const loop = (name, end) => `import numora, os, signal\nfor i in numora.progress(range(5), '${name}', interval=0):\n    if i == 3: ${end}`;
    await console.type(loop("first", "print('last words'); os.kill(os.getpid(), signal.SIGSEGV); signal.pause()"));
    const death = console.log.locator(".death");
    await expect(death).toContainText("SIGSEGV");
    await death.locator("summary").click();
    await expect(death).toContainText("last words");
    await expect(page.getByRole("tabpanel")).toContainText("No variables");
    expect(await console.run("'x' in globals()")).toContain("False\n");
    await console.says("The interpreter was started again");
    await console.run(loop("second", "pass"));
    await expect(console.log.locator(".progress")).toHaveText([/^first 3\/5/, /^second 5\/5/]);
});

test("interpreters have their own logs and queues, and a restart asks before it takes the variables", async ({console, page}) => {
    console.expected = /404/;  // what was under way to the one that is deleted
    await console.run("x = 1");
    await console.type("import time; time.sleep(3)");
    await console.type("print('went', 'on')");
    await console.menu("New interpreter");
    await page.keyboard.press("Escape");
    await expect(page).toHaveURL(/#/);
    await console.code.waitFor();
    await console.is("idle");
    expect(await console.run("'x' in globals()")).toBe("False\n");
    await console.menu("Delete");
    await console.menu("its variables and its log are lost");
    await page.keyboard.press("Escape");
    await console.says("went on");
    await expect(page.locator("#header select").first()).toHaveValue("default");
    await console.menu("Restart");
    await expect(console.log.locator(".death")).toHaveCount(0);
    await console.menu("all variables are lost");
    await console.says("was restarted by a client");
});

test("two pages show the same, and the code of others is marked", async ({console, context, server}) => {
    const other = new Console(await context.newPage());
    await other.open(server.origin);
    await console.run("print('from', 'one')");
    await other.says("from one");
    const answer = await fetch(`${server.origin}/connector/v1/Eval`, {
        method: "POST", body: JSON.stringify({mcode: "6 * 7"}),
        headers: {"Authorization": `Bearer ${token}`, "Content-Type": "application/json", "Connector-Client-Type": "a-script"},
    });
    expect(answer.status).toBe(200);
    for (const each of [console, other]) await expect(each.log.locator(".is-other")).toContainText("a-script");
});

test("pages that come late show what runs since when, what it asks, and what was typed in others", async ({context, server}) => {
    const request = (type, body) => fetch(`${server.origin}/connector/v1/${type}`, {
        method: "POST", body: JSON.stringify(body), headers: {"Authorization": `Bearer ${token}`, "Content-Type": "application/json"},
    }).then(response => response.json());
    const state = async () => JSON.parse((await request("FEval", {function: "numora.state", arguments: [], nargout: 1, dequeMode: "ppe"})).results)[0];
    expect(await state()).toEqual({prompt: "BASE_PROMPT", number: null, seconds: null, question: null});
    const running = request("Eval", {mcode: "import time\ntold = []\nwhile not told: time.sleep(0.01)"});
    await expect.poll(async () => (await state()).seconds).toBeGreaterThan(3);
    const pages = [];
    const open = async () => {
        const console = new Console(await context.newPage());
        await console.page.goto(`${server.origin}/?token=${token}`);
        pages.push(console);
        return console;
    };
    const first = await open();
    await first.says("while not told");
    await expect(first.state).toHaveText(/Running 00:(0[3-9]|[1-5]\d)/);
    await request("FEval", {function: "told.append", arguments: [1], nargout: 0, dequeMode: "ppe"});
    await running;
    await expect(first.entries.last()).not.toHaveClass(/is-running/);

    await first.type("import getpass\ngetpass.getpass('Word? ')\nprint('Hello', input('Name? '))");
    await first.is("asking");
    expect(await state()).toMatchObject({prompt: "INPUT_PROMPT", number: 2, question: {number: 1, prompt: "Word? ", password: true}});
    const second = await open();
    await expect(second.answer).toHaveAttribute("type", "password");
    await first.send("secret");
    await expect(first.answer).toHaveAttribute("type", "text");
    await first.send("Ada");
    const third = await open();
    await second.page.reload();
    for (const each of pages) await each.says("Name? Ada\nHello Ada");
    for (const {log} of [second, third]) await expect(log).not.toContainText("secret");
});

test("a server that is gone for long is told, and its work goes on when it is back", async ({console, page, server}) => {
    console.expected = /WebSocket|ERR_|Failed to load/;
    const proxy = await CuttingProxy.start(server.port);
    await console.open(proxy.url, "/");
    await console.run("print('last words')");
    proxy.refuses = true;
    proxy.cut().catch(() => {});
    await expect(console.state).toContainText("Connection lost");
    await page.clock.setFixedTime(Date.now() + 31_000);
    await expect(console.state).toContainText("The server does not answer since");
    await console.type("print('sent', 'later')");
    await console.says("last words");
    proxy.refuses = false;
    await console.says("sent later");
    await console.is("idle");
    await expect(console.entries.filter({hasText: "sent"})).toHaveCount(1);
    proxy.stop();
});

test("where a proxy lets no WebSocket pass, all comes by HTTP", async ({console, server}) => {
    console.expected = /WebSocket/;
    const proxy = createServer((request, response) => {
        const {upgrade, connection, ...headers} = request.headers;
        const passed = forward({port: server.port, method: request.method, path: request.url, headers}, answer => {
            response.writeHead(answer.statusCode, answer.headers);
            answer.pipe(response);
        });
        passed.on("error", () => response.destroy());
        response.on("close", () => passed.destroy());
        request.pipe(passed);
    }).listen(0, "127.0.0.1");
    await once(proxy, "listening");
    await console.open(`http://127.0.0.1:${proxy.address().port}`, "/");
    await console.type("for i in range(1000): print('line', i)\nprint('Hello', input('Name? '))");
    await console.send("Ada");
    await console.says("Hello Ada");
    await console.says("line 999");
    proxy.close();
});
