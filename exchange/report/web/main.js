// Fills the page with the data of a registration.
import { Matrix4 } from "three";
import { bars, byHowMuch, histogram, legend, margin, stacked } from "./charts.js";
import { breakable, capital, count, figure, fileName, make, percent, quantity, round, seconds } from "./format.js";
import * as pack from "./pack.js";
import { niceCeil } from "./scale.js";
import { ADVICE, ADVICE_ON_START, CAUSES, STAGES, TIMES } from "./texts.js";
import { Viewer } from "./viewer.js";

const data = JSON.parse(document.getElementById("data").textContent);
const wish = new URLSearchParams(location.hash.slice(1)); // #view=distance&pose=2&theme=dark
const $ = (id) => document.getElementById(id);
const put = (id, ...children) => $(id).replaceChildren(...children);
const origin = data.fix.cloud.low.map((v, k) => v + data.fix.cloud.size[k] / 2);
const apart = data.flt.origin.map((v, k) => v - data.fix.origin[k]); // clouds and local poses are relative to these
const spacing = Math.max(data.fix.spacing, data.flt.spacing);
const state = { pose: 0, view: "before", range: 1 };
let viewer = null;

const shareOf = (ratio) => ratio < 0 ? "\u2013" : percent(ratio); // below 0: not reached
const isFit = (pose) => pose.objection === "";
const limitOf = (pose, code) => pose.tests.find((t) => t.code === code && t.stage !== "FIX on FLT")?.limit ?? null;

/* The verdict. */

function turnAndShift(matrix) {
    const trace = matrix[0][0] + matrix[1][1] + matrix[2][2];
    const middle = data.flt.cloud.low.map((v, k) => v + data.flt.cloud.size[k] / 2);
    const moved = matrix.slice(0, 3).map((row) => row[0] * middle[0] + row[1] * middle[1] + row[2] * middle[2] + row[3]);
    return [Math.acos(Math.min(1, Math.max(-1, (trace - 1) / 2))), Math.hypot(...moved.map((v, k) => v - middle[k] - apart[k]))];
}

function adviceOn({ isRefinement, reasonCode }) {
    return (isRefinement && ADVICE_ON_START[reasonCode]) || ADVICE[reasonCode];
}

function showVerdict() {
    const names = `${fileName(data.flt.file)} onto ${fileName(data.fix.file)}`;
    document.title = `${data.found ? "Registered" : "Refused"}: ${names}`;
    put("files", make("i", { class: "dot flt" }), make("b", {}, fileName(data.flt.file)), " (FLT) onto ",
        make("i", { class: "dot fix" }), make("b", {}, fileName(data.fix.file)), " (FIX)");
    put("version", `voalgo ${data.voalgo}`);
    const advice = adviceOn(data);
    const passed = data.found ? data.poses[0].tests.filter((t) => t.outcome === "passed").length : 0;
    const headline = data.found ? "Registered" : "Refused: no pose can be trusted";
    const text = data.found
        ? `The pose passed all ${passed} acceptance tests` + (data.resultCount > 1
            ? `; ${data.resultCount - 1} other pose${data.resultCount > 2 ? "s" : ""} passed, too, but explain${data.resultCount > 2 ? "" : "s"} much less of FLT.` : ".")
        : capital(data.reason) + ".";
    $("verdict").classList.add(data.found ? "good" : "bad");
    put("verdict", make("span", { class: "badge", "aria-hidden": "true" }, data.found ? "\u2713" : "\u2715"),
        make("div", {}, make("h2", {}, headline), make("p", {}, text),
            data.found || !advice ? null : make("p", { class: "advice" }, advice)));
    showFigures();
}

function showFigures() {
    const tile = (name, value, remark) => make("div", { class: "tile" }, make("span", {}, name), make("strong", {}, value), make("small", {}, remark));
    const s = data.statistics;
    const total = Object.values(data.seconds).reduce((a, b) => a + b, 0);
    const time = tile("Time", seconds(total), "from reading to report");
    const pose = data.poses[state.pose];
    if (data.found || data.isRefinement) {
        const [turn, shift] = turnAndShift(pose.localPose);
        const limit = (code, sign, unit) => { const l = limitOf(pose, code); return l === null ? "" : `limit ${sign} ${quantity(l, unit)}`; };
        put("figures", tile("RMSE", quantity(pose.fStop_RMSE, "mm"), limit("rmse", "\u2264", "mm")),
            tile("Overlap", shareOf(pose.fStop_OverlapRatio), `of FLT; ${limit("overlap_ratio", "\u2265", "").replace(/[\d.]+$/, (v) => percent(Number(v)))}`),
            tile("Small/big ratio", pose.fStop_SmallBigRatio < 0 ? "\u2013" : figure(pose.fStop_SmallBigRatio), limit("small_big_ratio", "\u2265", "")),
            pose.fStop_OverlapArea >= 0 ? tile("Overlap area", quantity(pose.fStop_OverlapArea, "mm2"), "of FIX covered by FLT")
                : tile("Agreeing proposals", count(pose.clusterSize), data.isRefinement ? "the given pose" : "led to this pose"),
            tile("Rotation", quantity(turn, "rad"), "applied to FLT"),
            tile("Translation", quantity(shift, "mm"), "of FLT\u2019s centre"), time);
    } else {
        put("figures", tile("Polygons", count(s.uiNumPolygons), "at most"), tile("Proposed poses", count(s.uiNumProposals), "each refined once"),
            tile("Accepted", count(s.uiNumSuccessful), "by the search"), tile("Refused", count(s.uiNumFailed), "by the search"),
            tile("Point spacing", quantity(spacing, "mm"), "of the coarser scan"), time);
    }
}

/* The poses, and the distances and tests of the chosen one. */

function showPoses() {
    if (data.poses.length === 0) {
        put("poses", make("p", { class: "empty" }, `${data.statistics.uiNumProposals === 0 ? "No pose was proposed" : "No proposed pose reached the verification"}, so there is none to show. The view shows both scans as loaded.`));
        return;
    }
    const button = (pose, i) => make("button", { type: "button", role: "radio", "aria-checked": i === state.pose, class: "pose", onclick: () => { choosePose(i); if (state.view === "before") setView("after", true); } },
        make("span", { class: isFit(pose) ? (data.found ? "rank good" : "rank warn") : "rank bad" }, isFit(pose) ? String(i + 1) : "\u2715"),
        make("span", { class: "what" }, make("b", {}, isFit(pose) ? (i === 0 && data.found ? "Best pose" : data.found ? `Pose ${i + 1}` : `Pose ${i + 1}, ambiguous`) : capital(pose.objection)),
            make("small", {}, `RMSE ${quantity(pose.fStop_RMSE, "mm")} \u00b7 overlap ${shareOf(pose.fStop_OverlapRatio)} \u00b7 ${count(pose.clusterSize)} proposal${pose.clusterSize === 1 ? "" : "s"}`)));
    const rows = data.poses.map(button);
    const firstRefused = data.poses.findIndex((p) => !isFit(p));
    const hidden = data.resultCount + data.refusedCount - data.poses.length;
    if (firstRefused >= 0)
        rows.splice(firstRefused, 0, make("p", { class: "group" }, "Refused"));
    if (hidden > 0) rows.push(make("p", { class: "group" }, `and ${count(hidden)} more`));
    put("poses", ...rows);
}

function choosePose(i) {
    state.pose = i;
    const pose = data.poses[i];
    pose.values ??= pack.distances(pose.distances, data.pairRadius);
    pose.figures ??= pack.describe(pose.values);
    state.range = niceCeil(Math.min(data.pairRadius, pose.figures.within95 ?? data.pairRadius));
    viewer?.setDistances(pose.values);
    if (viewer && state.view !== "before") viewer.setPose(matrixOf(pose), true);
    showPoses();
    showFigures();
    showDistances();
    showTests();
    showMatrix();
}

function showDistances() {
    const pose = data.poses[state.pose];
    const { figures } = pose;
    const limit = limitOf(pose, "rmse"), rmse = pose.fStop_RMSE;
    const row = (name, value) => [make("dt", {}, name), make("dd", {}, value)];
    put("histogram", histogram(figures, state.range, rmse, limit),
        make("p", { class: "keys" }, make("span", {}, make("i", { class: "line rmse" }), "\u00b1 RMSE"), make("span", {}, make("i", { class: "line limit" }), "\u00b1 its limit"), make("span", {}, "height: % of pairs")),
        make("dl", {}, ...row("With a partner", percent(figures.share)), ...row("Root mean square", quantity(figures.rms, "mm")),
            ...row("Median", quantity(figures.median, "mm")), ...row("95 % within \u00b1", quantity(figures.within95, "mm"))),
        make("p", { class: "note" }, `${data.flt.shown < data.flt.points ? `${count(data.flt.shown)} of ${count(data.flt.points)}` : `All ${count(data.flt.points)}`} points of FLT. Distance to the tangent plane of the nearest point of FIX, if that lies within ${quantity(data.pairRadius, "mm")} and its normal differs by less than ${quantity(data.pairAngle, "rad", 2)}.`));
    put("legend", ...legend(state.range, data.pairRadius, (range) => { state.range = range; refreshRange(); }));
    viewer?.setByDistance(state.view === "distance", state.range);
}

/** Keeps the slider, which must remain the same element while it is held. */
function refreshRange() {
    const ticks = document.querySelectorAll("#legend .ramp span");
    [1, 0.5, 0, -0.5, -1].forEach((t, i) => { ticks[i].textContent = (t > 0 ? "+" : "") + round(t * state.range); });
    const pose = data.poses[state.pose];
    $("histogram").firstChild.replaceWith(histogram(pose.figures, state.range, pose.fStop_RMSE, limitOf(pose, "rmse")));
    viewer?.setByDistance(state.view === "distance", state.range);
}

function showTests() {
    const pose = data.poses[state.pose];
    if (!pose) {
        $("testsCard").hidden = $("poseCard").hidden = $("distancesCard").hidden = true;
        return;
    }
    const { tests } = pose;
    const tally = (outcome) => tests.filter((t) => t.outcome === outcome).length;
    put("testsLead", `${isFit(pose) ? `Pose ${state.pose + 1}` : "The refused pose"}: ${tally("passed")} passed, ${tally("failed")} failed`
        + (tally("not run") ? `, ${tally("not run")} not reached.` : "."));
    const outcome = { passed: "\u2713 passed", failed: "\u2715 failed", "not run": "not reached" };
    const rows = [];
    let stage = null;
    for (const t of tests) {
        if (t.stage !== stage) rows.push(make("tr", { class: "stage-row" }, make("th", { colspan: 6, scope: "rowgroup" }, STAGES[t.stage] ?? t.stage)));
        stage = t.stage;
        const isCount = t.unit === "" && Number.isInteger(t.limit); // pairs, inliers, proposals
        const text = (v) => isCount && v !== null ? count(v) : quantity(v, t.unit);
        const isKnown = t.value !== null && t.limit !== null;
        rows.push(make("tr", { class: t.outcome.replace(" ", "-") }, make("th", { scope: "row" }, t.name, t.setting ? make("code", {}, t.setting) : null),
            make("td", { class: "number" }, t.limit === null ? "" : `${t.isAtMost ? "\u2264" : "\u2265"} ${text(t.limit)}`),
            make("td", { class: "number" }, text(t.value)),
            make("td", { class: "gauge" }, isKnown ? margin(t) : ""), make("td", { class: "much" }, isKnown ? byHowMuch(t) : ""),
            make("td", { class: "outcome" }, outcome[t.outcome])));
    }
    put("tests", make("table", {}, make("thead", {}, make("tr", {}, ...[["Test", ""], ["Limit", "number"], ["Value", "number"], ["Margin", "gauge"], ["", ""], ["Outcome", ""]]
        .map(([name, kind]) => make("th", { scope: "col", class: kind }, name)))), make("tbody", {}, ...rows)));
}

function showMatrix() {
    const pose = data.poses[state.pose];
    const rows = pose.pose;
    put("poseLead", `Maps FLT into FIX: rotation and translation, in ${data.unit}` + (isFit(pose) && data.found ? "." : ". Do not use it: this pose was refused."));
    put("matrix", ...rows.flat().map((v) => make("span", {}, v.toFixed(6).replace("-", "\u2212"))));
    $("copy").onclick = async () => {
        const text = rows.map((row) => row.join(" ")).join("\n");
        try { await navigator.clipboard.writeText(text); $("copy").textContent = "Copied"; }
        catch { getSelection().selectAllChildren($("matrix")); $("copy").textContent = "Selected"; }
    };
}

/* Independent of the chosen pose. */

function showCauses() {
    const s = data.statistics;
    $("causesCard").hidden = data.isRefinement; // nothing was proposed
    put("causesLead", s.uiNumProposals === 0 ? "No pose was proposed." : `${count(s.uiNumProposals)} poses were proposed from up to ${count(s.uiNumPolygons)} polygons, and each was refined. Most proposals are wrong and are meant to be refused.`);
    const rows = s.uiNumSuccessful + s.uiNumFailed === 0 ? [] : [{ label: "Accepted by the search", value: s.uiNumSuccessful, text: count(s.uiNumSuccessful), kind: "good",
        remark: data.refusedCount ? `Similar poses count as one; ${count(data.refusedCount)} of these failed the verification.` : "Similar poses count as one; those that explain most were then verified." }];
    for (const f of s.failures) {
        const [meaning, change] = CAUSES[f.code] ?? ["", ""];
        rows.push({ label: capital(f.cause), value: f.count, text: `${count(f.count)}  (${percent(f.count / (s.uiNumFailed + s.uiNumSuccessful), 2)})`, remark: data.found || change === "As above." ? meaning : `${meaning} ${change}` });
    }
    put("causes", rows.length ? bars(rows) : make("p", { class: "empty" }, `Nothing was refined. ${adviceOn(data) ?? ""}`));
}

function showScans() {
    const rows = [["File", (c) => breakable(c.file)], ["SHA-1", (c) => c.sha1?.replace(/.{8}/g, "$&\u200b") ?? "unknown"], ["Points read", (c) => count(c.pointsRead)], ["Points used", (c) => count(c.points)],
        ["Points shown here", (c) => count(c.shown)], ["Point spacing", (c) => quantity(c.spacing, "mm")], ["Largest extent", (c) => quantity(c.extent, "mm")],
        ["Normals", (c) => c.normalsEstimated ? "estimated" : "from the file"]];
    const remarks = [data.fix, data.flt].map((c) => [...c.warnings.map((w) => make("li", { class: "warning" }, capital(w))), ...c.notes.map((n) => make("li", {}, capital(n)))]);
    const table = make("table", { class: "plain" }, make("thead", {}, make("tr", {}, make("th", {}), make("th", {}, make("i", { class: "dot fix" }), "FIX"), make("th", {}, make("i", { class: "dot flt" }), "FLT"))),
        make("tbody", {}, ...rows.map(([name, value]) => make("tr", {}, make("th", { scope: "row" }, name), make("td", {}, value(data.fix)), make("td", {}, value(data.flt))))));
    if (remarks.flat().length)
        table.tBodies[0].append(make("tr", {}, make("th", { scope: "row" }, "Remarks"), ...remarks.map((list) => make("td", {}, list.length ? make("ul", {}, ...list) : "none"))));
    put("scans", table);
}

function showSettings() {
    const text = (key, value) => {
        const { unit, off } = data.fields[key];
        return off && value <= 0 ? off : Number.isInteger(value) && !unit ? count(value) : quantity(value, unit, 4);
    };
    const table = (caption, heads, rows) => make("div", { class: "scroll" }, make("table", { class: "plain settings" }, make("caption", {}, caption),
        make("thead", {}, make("tr", {}, ...heads.map((h) => make("th", { scope: "col" }, h)))),
        make("tbody", {}, ...rows.map(([key, ...values]) => make("tr", {}, make("th", { scope: "row" }, make("code", {}, key)), ...values.map((v) => make("td", { class: "number" }, text(key, v))), make("td", { class: "meaning" }, capital(data.fields[key].meaning)))))));
    const { config, verification, resolution, workingSpacing, preset } = data.settings;
    const plain = (object) => Object.entries(object).filter(([, v]) => typeof v === "number");
    put("settings", make("p", { class: "lead" }, `Preset ${preset}. Settings that no configuration states are derived from the size of the object, the spacing and the roughness of the points.`),
        make("div", { class: "columns" }, make("div", {}, table("Search", ["Setting", "Value", "Meaning"], [["resolution", resolution], ["workingSpacing", workingSpacing], ...plain(config)]),
            table("Verification", ["Setting", "Value", "Meaning"], plain(verification))),
        table("Refinement of a pose", ["Setting", "Search", "Grading", "Meaning"], Object.entries(config.icpConfig).map(([k, v]) => [k, v, verification.icpConfig[k]]))));
}

/* The 3D view. */

function matrixOf(pose) { // in the frame of the view, whose origin is the middle of FIX
    const m = pose ? new Matrix4().set(...pose.localPose.flat()) : new Matrix4().makeTranslation(...apart);
    const [x, y, z] = origin;
    return new Matrix4().makeTranslation(-x, -y, -z).multiply(m).multiply(new Matrix4().makeTranslation(x, y, z));
}

function setView(view, smoothly) {
    const wasBefore = state.view === "before";
    state.view = data.poses.length ? view : "before";
    for (const button of document.querySelectorAll("[data-view]")) {
        button.setAttribute("aria-pressed", button.dataset.view === state.view);
        button.disabled = button.dataset.view !== "before" && data.poses.length === 0;
    }
    $("legend").hidden = state.view !== "distance";
    if (!viewer) return;
    if ((state.view === "before") !== wasBefore || !smoothly)
        viewer.setPose(state.view === "before" ? matrixOf(null) : matrixOf(data.poses[state.pose]), smoothly);
    if (state.view === "before") setTimeout(() => viewer.fit(true), smoothly ? 520 : 0);
    viewer.setByDistance(state.view === "distance", state.range);
    colourViewer();
}

function colourViewer() {
    const style = getComputedStyle(document.documentElement);
    const value = (name) => style.getPropertyValue(name).trim();
    viewer?.setColours({ fix: value(state.view === "distance" ? "--fix-dim" : "--fix"), flt: value("--flt"), none: value("--none") });
}

function showRuler(mmPerPixel) {
    const length = niceCeil(60 * mmPerPixel);
    $("ruler").style.width = `${length / mmPerPixel}px`;
    const text = `${round(length)}\u202fmm`;
    if ($("ruler").textContent !== text) $("ruler").textContent = text;
}

function startViewer() {
    try {
        viewer = new Viewer($("canvas"), pack.cloud(data.fix.cloud, origin), pack.cloud(data.flt.cloud, origin));
    } catch (error) {
        $("canvas").append(make("p", { class: "empty" }, "The 3D view needs WebGL 2, which this browser lacks or has disabled. Everything else on this page works."));
        return;
    }
    // Where only some of the points are shown, each stands for several.
    for (const name of ["fix", "flt"]) viewer[name].spacing = data[name].spacing * Math.sqrt(data[name].points / data[name].shown);
    viewer.onFrame = showRuler;
    for (const [box, name] of [["showFix", "fix"], ["showFlt", "flt"]])
        $(box).addEventListener("change", () => { viewer[name].visible = $(box).checked; viewer.draw(); });
    $("pointSize").addEventListener("input", () => { viewer.size = Number($("pointSize").value); viewer.draw(); });
    $("fit").addEventListener("click", () => viewer.fit(true));
}

function setTheme(name) {
    document.documentElement.dataset.theme = name;
    colourViewer();
}

function start() {
    setTheme(wish.get("theme") ?? (matchMedia("(prefers-color-scheme: dark)").matches ? "dark" : "light"));
    $("theme").addEventListener("click", () => setTheme(document.documentElement.dataset.theme === "dark" ? "light" : "dark"));
    showVerdict();
    startViewer();
    showCauses();
    showScans();
    put("times", stacked(Object.entries(data.seconds).map(([key, value]) => ({ label: TIMES[key] ?? key, value }))));
    showSettings();
    if (data.poses.length) choosePose(Math.min(data.poses.length, Math.max(1, Number(wish.get("pose") ?? 1))) - 1);
    else { showPoses(); showTests(); }
    for (const button of document.querySelectorAll("[data-view]")) button.addEventListener("click", () => setView(button.dataset.view, true));
    setView(wish.get("view") ?? (data.found ? "after" : "before"), false);
    viewer?.fit(false);
    viewer?.drawNow();
    viewer?.waitUntilDrawn();
    document.documentElement.dataset.readyAfter = Math.round(performance.now()); // ms since the page was opened
}

start();
