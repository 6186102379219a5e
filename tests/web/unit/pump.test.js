import assert from "node:assert/strict";
import {beforeEach, test} from "node:test";
import {imported} from "./modules.js";

const {Pump} = await imported("output/Pump.ts");

let now, isHidden, waiting, log, pump;
const frame = () => waiting.splice(0).forEach(run => run());
const work = (name, milliseconds, size = 1) => pump.push(size, () => {
    now += milliseconds;
    log.push(name);
});
beforeEach(() => {
    [now, isHidden, waiting, log] = [0, false, [], []];
    pump = new Pump(() => log.push("settled"), {now: () => now, isHidden: () => isHidden, request: run => waiting.push(run)});
});

test("a frame does 8 ms of work in order, then settles; the rest waits for the next", () => {
    for (const name of "abcd") work(name, 3);
    assert.deepEqual([log, waiting.length, pump.backlog], [[], 1, 4]);
    frame();
    assert.deepEqual([log.splice(0), pump.backlog], [["a", "b", "c", "settled"], 1]);
    frame();
    assert.deepEqual([log, waiting.length, pump.backlog], [["d", "settled"], 0, 0]);
});

test("a piece that takes long gets a frame of its own", () => {
    work("long", 100);
    work("next", 1);
    frame();
    assert.deepEqual(log, ["long", "settled"]);
});

test("a hidden tab works at once, and first what waited", () => {
    work("before", 1);
    isHidden = true;
    work("now", 1);
    assert.deepEqual(log, ["before", "now", "settled"]);
});

test("what goes beyond the bound is done by whoever brings it", () => {
    for (let i = 0; i < 10; ++i) work(i, 1, 1 << 20);
    assert.deepEqual([log, pump.backlog], [[0, 1, 2, 3, 4, 5], 4 << 20]);
});

test("a piece that throws is reported, and the next one runs", t => {
    const report = t.mock.fn();
    globalThis.reportError = report;
    t.after(() => delete globalThis.reportError);
    pump.push(1, () => {
        throw new Error("broken");
    });
    work("next", 1);
    frame();
    assert.deepEqual([log, report.mock.callCount()], [["next", "settled"], 1]);
});

test("a piece may flush and push", () => {
    pump.push(1, () => {
        work("pushed", 0);
        pump.flush();
        log.push("outer");
    });
    frame();
    assert.deepEqual(log, ["pushed", "settled", "outer", "settled"]);
});
