// Users who stream at the same time: for a few seconds, or as many as the environment variable SECONDS says.

import assert from "node:assert/strict";
import {after, before, test} from "node:test";
import {connect} from "../../clients/typescript/dist/index.js";
import {CometDClient, connected} from "./bayeux.js";
import {Server, token} from "./server.js";

const seconds = Number(process.env.SECONDS ?? 2);
let server;
before(async () => (server = await Server.start()));
after(() => server.stop());

/** Runs code with a stream of our client. */
const withStream = client => async code => {
    const heard = {output: "", error: ""};
    for await (const event of client.stream(code)) {
        if (event.type === "text") heard[event.stream] += event.text;
        if (event.type === "completion") heard.success = event.success;
    }
    return heard;
};

/** Runs code as a user of CometD does, who takes the messages that carry the name of the request. */
const withCometD = (client, user) => {
    let count = 0, take;
    client.cometd.subscribe("/eval/response/*", message => take?.(message));
    return code => new Promise((resolve, reject) => {
        const request = `${user}-${++count}`;
        const heard = {output: "", error: ""};
        take = ({channel, data, ext}) => {
            if (ext.connector.request !== request) return;
            const kind = channel.split("/").pop();
            if (kind in heard) heard[kind] += data;
            if (kind === "completion") resolve({...heard, success: data === "Done: success"});
        };
        client.cometd.publish("/eval/request", code, {ext: {connector: {request, prompt: 0}}},
            reply => reply.successful || reject(new Error(reply.error)));
    });
};

test("each gets exactly its own text and status", {timeout: (seconds + 60) * 1000}, async t => {
    const [ours, bobs] = [await connect(server.origin, {token}), await connect(server.origin, {token})];
    const cometd = [await connected(CometDClient, server.url, "websocket"), await connected(CometDClient, server.url, "long-polling")];
    t.after(() => Promise.all([ours.close(), bobs.close(), ...cometd.map(client => client.end())]));
    const users = {
        Alice: withStream(ours), Bob: withStream(bobs), "a second stream of Alice": withStream(ours),
        Carol: withCometD(cometd[0], "Carol"), Dave: withCometD(cometd[1], "Dave"),
    };
    const end = Date.now() + seconds * 1000;
    const rounds = await Promise.all(Object.entries(users).map(async ([user, run]) => {
        let round = 0;
        for (; Date.now() < end || round < 3; ++round) {
            const mine = `${user} ${round}`;
            const fails = user === "Bob" || user === "Dave";
            const {output, error, success} = await run(
                `for i in range(100): print('${mine}', i, flush=i % 7 == 0)\n${fails ? `raise ValueError('${mine}')` : ""}`);
            assert.equal(output, Array.from({length: 100}, (_, i) => `${mine} ${i}\n`).join(""));
            assert.equal(success, !fails);
            assert.equal(error.split("\n").at(-2) ?? "", fails ? `ValueError: ${mine}` : "");
        }
        return `${user}: ${round}`;
    }));
    t.diagnostic(`requests: ${rounds.join(", ")}`);
});
