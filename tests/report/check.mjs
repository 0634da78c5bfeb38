// Opens reports in headless Chromium without a network and checks what a user would see:
//     node tests/report/check.mjs found=a.html refused=b.html ...
// Node alone, no packages: the browser is driven through its pipe.
import { spawn } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync, statSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join, resolve } from "node:path";
import { pathToFileURL } from "node:url";
import { ADVICE, CAUSES } from "../../exchange/report/web/texts.js";

const LARGEST = 10e6; // bytes
const SCREENS = { laptop: [1366, 768], small: [1024, 700], phone: [390, 800] };

class Browser {
    constructor() {
        this.profile = mkdtempSync(join(tmpdir(), "voalgo-report-"));
        this.process = spawn("chromium", ["--headless=new", "--no-sandbox", "--remote-debugging-pipe", "--hide-scrollbars",
            "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--host-resolver-rules=MAP * ~NOTFOUND",
            "--disable-background-networking", "--no-first-run", `--user-data-dir=${this.profile}`, "about:blank"],
        { stdio: ["ignore", "ignore", "ignore", "pipe", "pipe"] });
        this.answers = new Map();
        this.events = [];
        let rest = "";
        this.process.stdio[4].on("data", (chunk) => {
            const messages = (rest + chunk).split("\0");
            rest = messages.pop();
            for (const message of messages.map(JSON.parse)) {
                if (message.id) this.answers.get(message.id)(message);
                else this.events.push(message);
            }
        });
        this.next = 0;
    }

    send(method, params = {}) {
        const id = ++this.next;
        this.process.stdio[3].write(JSON.stringify({ id, method, params, sessionId: this.session }) + "\0");
        return new Promise((done, fail) => this.answers.set(id, (m) => m.error ? fail(new Error(`${method}: ${m.error.message}`)) : done(m.result)));
    }

    async attach() {
        const { targetInfos } = await this.send("Target.getTargets");
        const { targetId } = targetInfos.find((t) => t.type === "page");
        this.session = (await this.send("Target.attachToTarget", { targetId, flatten: true })).sessionId;
        for (const domain of ["Page", "Runtime", "Network", "Log"]) await this.send(`${domain}.enable`);
    }

    async ask(expression) {
        const { result, exceptionDetails } = await this.send("Runtime.evaluate", { expression, awaitPromise: true, returnByValue: true });
        if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
        return result.value;
    }

    async until(expression, milliseconds = 60000) {
        for (const end = Date.now() + milliseconds; Date.now() < end; await new Promise((r) => setTimeout(r, 50)))
            if (await this.ask(expression)) return;
        throw new Error(`never came true: ${expression}`);
    }

    screen([width, height]) {
        return this.send("Emulation.setDeviceMetricsOverride", { width, height, deviceScaleFactor: 1, mobile: false });
    }

    async picture() {
        return (await this.send("Page.captureScreenshot", { format: "png" })).data;
    }

    async close() {
        this.process.kill();
        await new Promise((done) => this.process.once("exit", done));
        try {
            rmSync(this.profile, { recursive: true, force: true, maxRetries: 20, retryDelay: 100 });
        } catch { } // the browser's children may still write: what is left in the temporary folder is no fault of a report
    }
}

/** Runs in the page: texts that overlap or stick out of the page, apart from what is scrolled out of sight. */
function faultsOfLayout() {
    const seenOf = (rect, element) => {
        let { left, right, top, bottom } = rect;
        for (let e = element; e !== document.body; e = e.parentElement) {
            if (getComputedStyle(e).overflowY === "visible") continue;
            const box = e.getBoundingClientRect();
            [left, right] = [Math.max(left, box.left), Math.min(right, box.right)];
            [top, bottom] = [Math.max(top, box.top), Math.min(bottom, box.bottom)];
        }
        return { left, right, top, bottom };
    };
    const faults = [];
    if (document.documentElement.scrollWidth > innerWidth) faults.push(`${document.documentElement.scrollWidth} px wide`);
    const texts = [];
    const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
    for (let node = walker.nextNode(); node; node = walker.nextNode()) {
        const parent = node.parentElement;
        if (!node.data.trim() || parent.closest("script, title, [hidden], details:not([open]) > :not(summary)")) continue;
        const range = document.createRange();
        range.selectNodeContents(node);
        for (const rect of range.getClientRects()) {
            const seen = seenOf(rect, parent);
            if (seen.right - seen.left > 1 && seen.bottom - seen.top > 1) texts.push([seen, node.data.trim()]);
        }
    }
    texts.sort(([a], [b]) => a.top - b.top);
    texts.forEach(([a, name], i) => {
        for (let j = i + 1; j < texts.length && texts[j][0].top < a.bottom - 3; ++j) {
            const [b, other] = texts[j];
            if (Math.min(a.right, b.right) - Math.max(a.left, b.left) > 2) faults.push(`"${name}" meets "${other}"`);
        }
    });
    return faults;
}

/** Runs in the page: counts the pixels of the view by kind of colour. */
async function coloursOf(png) {
    const image = await createImageBitmap(new Blob([Uint8Array.from(atob(png), (c) => c.charCodeAt(0))]));
    const r = document.getElementById("canvas").getBoundingClientRect();
    const context = new OffscreenCanvas(r.width, r.height).getContext("2d");
    context.drawImage(image, -r.left, -r.top);
    const { data } = context.getImageData(0, 0, r.width - 170, r.height - 40); // without scale and hints
    const count = { orange: 0, blue: 0, other: 0 };
    for (let i = 0; i < data.length; i += 4) {
        const [red, , blue] = data.slice(i, i + 3);
        ++count[red > blue + 60 ? "orange" : blue > red + 60 ? "blue" : "other"];
    }
    return count;
}

async function check(browser, file, isFound) {
    const faults = [];
    const expect = (holds, what) => { if (!holds) faults.push(what); };
    const shots = process.env.SHOTS;
    const look = async (name) => {
        await browser.ask("new Promise((r) => requestAnimationFrame(() => requestAnimationFrame(r)))");
        const png = await browser.picture();
        if (shots) writeFileSync(join(shots, `${isFound ? "found" : "refused"}-${name}.png`), png, "base64");
        return browser.ask(`(${coloursOf})(${JSON.stringify(png)})`);
    };
    expect(statSync(file).size < LARGEST, `has ${statSync(file).size} bytes`);
    browser.events.length = 0;
    await browser.screen(SCREENS.laptop);
    await browser.send("Page.navigate", { url: "about:blank" }); // makes the same report open anew
    await browser.send("Page.navigate", { url: pathToFileURL(resolve(file)).href + "#theme=light" });
    await browser.until("document.documentElement?.dataset.readyAfter !== undefined");
    const milliseconds = await browser.ask("document.documentElement.dataset.readyAfter");

    const seen = await look("light");
    expect(seen.orange > 500 && (!isFound || seen.blue > 500), `the view is empty: ${JSON.stringify(seen)}`);
    expect((await browser.ask("document.getElementById('verdict').textContent")).startsWith(isFound ? "\u2713Registered" : "\u2715Refused"), "the verdict is wrong");
    const { isRefinement, poses, statistics } = await browser.ask("(({ isRefinement, poses, statistics }) => ({ isRefinement, poses: poses.length, statistics }))(JSON.parse(document.getElementById('data').textContent))");
    const causes = statistics.uiNumProposals > 0 ? 1 + statistics.failures.length : 0;
    expect(await browser.ask("document.querySelectorAll('#causes .track').length") === causes, `not ${causes} causes`);
    expect(await browser.ask("document.getElementById('causesCard').hidden") === isRefinement, "causes of a refinement");
    expect(await browser.ask("document.querySelectorAll('#settings tr').length > 30"), "there are no settings");
    expect(await browser.ask("[...document.querySelectorAll('#settings tbody tr')].every((row) => row.querySelector('.meaning').textContent.length > 5)"), "a setting has no meaning");
    expect(isFound || await browser.ask("document.querySelector('#verdict .advice')?.textContent.length > 20"), "there is no advice");
    expect(poses > 0 || !isFound, "there is no pose");
    if (poses > 0) {
        await browser.ask("document.querySelector('[data-view=before]').click(), document.querySelector('[data-view=distance]').click()");
        await new Promise((r) => setTimeout(r, 1200)); // the motion into place
        const distances = await look("distances");
        expect(distances.orange + distances.blue > 200, `no distances: ${JSON.stringify(distances)}`);
        expect(await browser.ask("!document.getElementById('legend').hidden && document.querySelectorAll('#histogram rect').length > 5"), "no scale or histogram");
        const failed = await browser.ask("document.querySelectorAll('#tests tr.failed').length");
        expect(isFound ? failed === 0 : failed > 0, `${failed} tests failed`);
        const top = await browser.ask("document.querySelector('.ramp span').textContent");
        await browser.ask("(() => { const s = document.querySelector('#legend input'); s.value = s.max; s.dispatchEvent(new Event('input')); })()");
        expect(await browser.ask("document.querySelector('.ramp span').textContent") !== top, "the slider does nothing");
    }
    for (const [name, size] of Object.entries(SCREENS)) {
        await browser.screen(size);
        await look(name);
        for (const fault of await browser.ask(`(${faultsOfLayout})()`)) faults.push(`${name}: ${fault}`);
    }
    await browser.screen(SCREENS.laptop);
    await browser.ask("document.getElementById('theme').click()");
    await look("dark");
    expect(await browser.ask("document.documentElement.dataset.theme === 'dark'"), "it stays light");

    for (const { method, params } of browser.events) {
        if (method === "Network.requestWillBeSent" && !/^(file|data|blob):/.test(params.request.url)) faults.push(`loads ${params.request.url}`);
        if (method === "Runtime.exceptionThrown") faults.push(params.exceptionDetails.exception?.description ?? params.exceptionDetails.text);
        if (method === "Runtime.consoleAPICalled" && params.type === "error") faults.push(`console: ${params.args.map((a) => a.value).join(" ")}`);
        if (method === "Log.entryAdded" && params.entry.level === "error") faults.push(`log: ${params.entry.text}`);
    }
    console.log(`${file}: ${(statSync(file).size / 1e6).toFixed(2)} MB, drawn ${milliseconds} ms after opening`);
    for (const fault of faults) console.log(`    ${fault}`);
    return faults.length === 0;
}

/** Codes of refusals for which the page has nothing to say. */
function codesWithoutAdvice() {
    const codesIn = (file, end) => [...readFileSync(new URL(`../../${file}`, import.meta.url), "utf8").split(end)[0].matchAll(/"([a-z_]+)"/g)]
        .map(([, code]) => code).filter((code) => !["undefined", "success", "unknown", "cancelled"].includes(code));
    const ofRefinement = codesIn("prereg/eicpresulttype.cpp");
    const all = [...ofRefinement, ...codesIn("verdict/erefusal.cpp", "{NoFinitePoints")]; // scans at fault give no report
    if (all.length < 17) return ["the sources, which list too few"];
    return [...all.filter((code) => !ADVICE[code]), ...ofRefinement.filter((code) => !CAUSES[code])];
}

const browser = new Browser();
let isGood = process.argv.length > 2;
const silent = codesWithoutAdvice();
if (silent.length) {
    console.log(`no advice on ${silent.join(", ")}`);
    isGood = false;
}
try {
    await browser.attach();
    for (const argument of process.argv.slice(2)) {
        const [kind, file] = argument.split("=");
        readFileSync(file); // a clear error when it is missing
        isGood = await check(browser, file, kind === "found") && isGood;
    }
} finally {
    await browser.close();
}
process.exit(isGood ? 0 : 1);
