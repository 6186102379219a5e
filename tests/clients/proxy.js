// Passes TCP connections on to a port, and cuts them.

import {once} from "node:events";
import {connect, createServer} from "node:net";
import {within} from "./waiting.js";

export class CuttingProxy {
    #connections = new Set();
    #used = () => {};
    /** New connections are closed at once. */
    refuses = false;

    /** Where the server is for the proxy's clients, who get nothing from elsewhere. */
    path = "/lab/numora";
    /**
     * Each connection takes one of them, as long as there are any, and is cut when it has brought as many bytes from the
     * server as that says or, for `{up: number}`, to the server, wherever in a message that is; none of what goes beyond
     * gets through.
     */
    cuts = [];

    static async start(port) {
        const proxy = new CuttingProxy();
        proxy.server = createServer(client => proxy.#pass(client, port));
        proxy.server.listen(0, "127.0.0.1");
        await once(proxy.server, "listening");
        proxy.url = `http://127.0.0.1:${proxy.server.address().port}${proxy.path}`;
        return proxy;
    }

    #pass(client, port) {
        if (this.refuses) return client.destroy();
        const server = connect(port, "127.0.0.1");
        const connection = {client, server};
        this.#connections.add(connection);
        client.once("data", () => this.#used());
        const room = {up: Infinity, down: Infinity};
        const pass = (direction, data, to) => {
            // With the first byte, so that idle connections use up no cut.
            if (!room.taken && this.cuts.length > 0) {
                const cut = this.cuts.shift();
                Object.assign(room, {taken: true}, typeof cut === "number" ? {down: cut} : cut);
            }
            to.write(data.subarray(0, room[direction]));
            room[direction] -= data.length;
            if (room[direction] < 0) this.#end(connection);
        };
        client.on("data", data => {
            const request = /^(DELETE|GET|PATCH|POST) ([^ ]*) /.exec(data.toString("latin1"));
            if (!request) return pass("up", data, server);
            if (!request[2].startsWith(this.path)) return this.#end(connection);
            pass("up", Buffer.concat([Buffer.from(`${request[1]} `), data.subarray(request[1].length + 1 + this.path.length)]), server);
        });
        server.on("data", data => pass("down", data, client));
        for (const socket of [client, server]) {
            socket.on("error", () => {});
            socket.on("close", () => this.#end(connection));
        }
    }

    #end(connection) {
        this.#connections.delete(connection);
        // What has been written still gets out.
        connection.client.destroySoon();
        connection.server.destroySoon();
    }

    /** Cuts every connection that there is, and resolves when a new one is used. */
    cut() {
        this.#endAll();
        return within(20_000, new Promise(resolve => (this.#used = resolve)), "a new connection");
    }

    stop() {
        this.server.close();
        this.#endAll();
    }

    #endAll() {
        for (const connection of this.#connections) this.#end(connection);
    }
}
