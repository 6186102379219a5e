// The page's modules as they are bundled, for Node and for a page in Chromium.

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
export const styleOfLog = new URL("style/log.css", web);
