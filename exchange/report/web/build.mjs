// Makes dist/report.html, the page without its data, from the sources in this folder: `npm ci && npm run build`.
import { build } from "esbuild";
import { mkdirSync, readFileSync, writeFileSync } from "node:fs";

const here = (name) => new URL(name, import.meta.url);
const read = (name) => readFileSync(here(name), "utf8");
const bundle = async (entry, options) => {
    const result = await build({
        entryPoints: [here(entry).pathname], bundle: true, minify: true, write: false, charset: "ascii",
        legalComments: "none", target: ["chrome100", "firefox100", "safari15"], ...options,
    });
    return result.outputFiles[0].text.trim();
};

const parts = {
    STYLE: await bundle("style.css", {}),
    SCRIPT: (await bundle("main.js", { format: "iife" })).replaceAll("</script", "<\\/script"),
    LICENCE: read("node_modules/three/LICENSE").trim().replaceAll("&", "&amp;").replaceAll("<", "&lt;"),
};
// A function as replacement: minified code is full of $ signs.
const page = read("index.html").replace(/@(STYLE|SCRIPT|LICENCE)@/g, (_, part) => parts[part]);
mkdirSync(here("dist"), { recursive: true });
writeFileSync(here("dist/report.html"), page);
console.log(`dist/report.html: ${Buffer.byteLength(page)} bytes`);
