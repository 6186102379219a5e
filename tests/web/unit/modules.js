// The page's modules as they are bundled, for Node and for a page in Chromium.

import {readdir, readFile} from "node:fs/promises";
import {createRequire} from "node:module";
import {fileURLToPath} from "node:url";

const web = new URL("../../../web/", import.meta.url);
const required = createRequire(new URL("package.json", web));

/** The text of one module of web/src with all that it needs. */
export async function bundled(...paths) {
    const contents = paths.map(path => `export * from "./src/${path}";`).join("\n");
    const {outputFiles} = await required("esbuild").build({
        stdin: {contents, resolveDir: fileURLToPath(web)}, bundle: true, format: "esm", target: "es2022", write: false, logLevel: "warning"});
    return outputFiles[0].text;
}

export const imported = async (...paths) => import(`data:text/javascript,${encodeURIComponent(await bundled(...paths))}`);

export const {chromium} = required("@playwright/test");
/** All styles but those of the page around the log. */
export async function styleOfLog() {
    const names = (await readdir(new URL("style/", web))).filter(name => name !== "layout.css").sort().reverse();
    return (await Promise.all(names.map(name => readFile(new URL(`style/${name}`, web), "utf8")))).join("\n");
}
