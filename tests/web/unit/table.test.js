// The rows of a table that are asked for, without a page.

import assert from "node:assert/strict";
import {test} from "node:test";
import {imported} from "./modules.js";

const {TableRows} = await imported("rich/TableRows.ts");
const turn = () => new Promise(resolve => setTimeout(resolve));

test("one answer is awaited at a time, and one that comes late is dropped", async () => {
    const asked = [], told = [];
    const rows = new TableRows((begin, end) => new Promise((resolve, reject) => asked.push({begin, end, resolve, reject})), {
        onSlice: ({begin}) => told.push(begin), onError: ({message}) => told.push(message), onLate() {}});
    const answer = async (at, cell) => (asked[at].resolve({begin: asked[at].begin, index: [["label"]], cells: [[cell]], numeric: [true]}), turn());
    rows.want(0, 20);
    for (let begin = 0; begin <= 9000; begin += 100) rows.want(begin, begin + 20);
    await answer(0, "late");
    assert.deepEqual([asked.map(({begin, end}) => [begin, end]), told, rows.row(0)], [[[0, 100], [9000, 9100]], [], undefined]);
    await answer(1, "old");
    rows.refresh();
    rows.refresh();
    await answer(2, "older");
    await answer(3, "new");
    assert.deepEqual([told, rows.row(9000).cells, asked.length], [[9000, 9000], ["new"], 4]);
    rows.want(50, 150);
    asked[4].reject(new Error("no"));
    await turn();
    assert.deepEqual([told.at(-1), asked.length], ["no", 5]);
    rows.want(50, 150);
    assert.equal(asked.length, 6);
});
