// A server of the program under test, whose path is in the environment variable NUMORA.

import assert from "node:assert/strict";
import {spawn} from "node:child_process";
import {once} from "node:events";
import {createInterface} from "node:readline";
import {within} from "./waiting.js";

export const token = "a-token-of-the-tests";

export class Server {
    #process;

    /** Starts a server on `port`, on any free one if that is 0, and returns when it takes connections. */
    static async start(port = 0, ...more) {
        const server = new Server();
        // A client that comes through a proxy names the proxy's port.
        const shown = more.includes("--token") ? [] : ["--token", token];
        const options = ["--port", String(port), ...shown, "--allow-host", "127.0.0.1", ...more];
        server.#process = spawn(process.env.NUMORA, ["serve", ...options], {stdio: ["ignore", "pipe", "inherit"]});
        const lines = createInterface({input: server.#process.stdout});
        const [line] = await within(60_000, once(lines, "line", {close: "close"}), "the server's first line");
        [, server.origin, server.port] = /^Listening on (http:\/\/127\.0\.0\.1:(\d+))\/$/.exec(line);
        server.url = `${server.origin}/cometd`;
        return server;
    }

    /** Asks the server to end, and checks that it does so as it should. */
    async stop() {
        const ended = once(this.#process, "exit");
        this.#process.kill("SIGTERM");
        assert.deepEqual(await within(20_000, ended, "the server's end").finally(() => this.#process.kill("SIGKILL")), [0, null]);
    }
}
