// The examples of the client's README.

import {readFile} from "node:fs/promises";

export async function examplesIn(language) {
    const text = await readFile("../../clients/typescript/README.md", "utf8");
    return [...text.matchAll(new RegExp("^```" + language + "\n([^]*?)^```$", "gm"))].map(([, code]) => code);
}
