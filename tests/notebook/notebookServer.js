// A Jupyter notebook server, with folders of its own.

import {spawn} from "node:child_process";
import {once} from "node:events";
import {mkdirSync, mkdtempSync, rmSync, writeFileSync} from "node:fs";
import {createServer} from "node:net";
import {tmpdir} from "node:os";
import {join} from "node:path";
import {createInterface} from "node:readline";
import {within} from "../clients/waiting.js";

/** One that is free now. The server takes another one if it is not then, but does not tell which it has for 0. */
async function freePort() {
    const probe = createServer().listen(0, "127.0.0.1");
    await once(probe, "listening");
    const {port} = probe.address();
    await new Promise(resolve => probe.close(resolve));
    return port;
}

export class NotebookServer {
    #process;
    folder = mkdtempSync(join(tmpdir(), "numora-notebook-"));

    /** With `numora`, the program's arguments for `kernel` but its connection file, as its kernelspec. */
    static async start({options = [], kernel} = {}) {
        const server = new NotebookServer();
        if (kernel) server.#addKernel(kernel);
        server.#process = spawn("/usr/bin/jupyter-notebook", ["--no-browser", "--allow-root", "--ip=127.0.0.1", `--port=${await freePort()}`, "--NotebookApp.token=",
            `--notebook-dir=${server.folder}`, ...options], {
            stdio: ["ignore", "ignore", "pipe"],
            env: {...process.env, HOME: server.folder, JUPYTER_PATH: join(server.folder, "share"), JUPYTER_CONFIG_DIR: server.folder,
                JUPYTER_RUNTIME_DIR: join(server.folder, "runtime"), JUPYTER_DATA_DIR: join(server.folder, "data")},
        });
        const lines = createInterface({input: server.#process.stderr});
        server.log = [];
        lines.on("line", line => server.log.push(line));
        await within(60_000, (async () => {
            for await (const line of lines) {
                [, server.origin] = /(http:\/\/127\.0\.0\.1:\d+)\//.exec(line) ?? [];
                if (server.origin) return;
            }
        })(), "the notebook server's address");
        return server;
    }

    #addKernel(kernel) {
        const folder = join(this.folder, "share/kernels/numora");
        mkdirSync(folder, {recursive: true});
        writeFileSync(join(folder, "kernel.json"), JSON.stringify({
            argv: [process.env.NUMORA, "kernel", ...kernel, "-f", "{connection_file}"],
            display_name: "Numora", language: "python", interrupt_mode: "message",
        }));
    }

    /** A notebook with these cells. */
    write(name, cells, kernel = "numora") {
        writeFileSync(join(this.folder, name), JSON.stringify({
            nbformat: 4, nbformat_minor: 4, metadata: {kernelspec: {name: kernel, display_name: kernel, language: "python"}},
            cells: cells.map(source => ({cell_type: "code", source, metadata: {}, outputs: [], execution_count: null})),
        }));
        return `${this.origin}/notebooks/${name}`;
    }

    async stop() {
        const ended = once(this.#process, "exit");
        this.#process.kill("SIGTERM");
        await within(20_000, ended, "the notebook server's end").finally(() => this.#process.kill("SIGKILL"));
        rmSync(this.folder, {recursive: true, force: true, maxRetries: 5});
    }
}
