// Charts without a library: bars, histogram, colour scale.
import { count, figure, make, percent, round, seconds, svg } from "./format.js";
import { STOPS, colourAt, css, niceCeil } from "./scale.js";

const GRADIENT = STOPS.map(([at, rgb]) => `${css(rgb)} ${at * 100}%`).join(", ");

/** The upright scale beside the 3D view, with a slider for its range. */
export function legend(range, largest, onRange) {
    const ticks = [1, 0.5, 0, -0.5, -1].map((t) =>
        make("span", { style: `top:${50 - 50 * t}%` }, (t > 0 ? "+" : "") + round(t * range)));
    const slider = make("input", { type: "range", min: 0.05, max: 1, step: 0.01, value: Math.sqrt(range / largest),
        "aria-label": "Range of the scale", title: "Range of the scale" });
    slider.addEventListener("input", () => onRange(largest * slider.value ** 2));
    return [
        make("strong", {}, "Distance, mm"),
        make("small", {}, "in front of FIX"),
        make("div", { class: "ramp" }, make("i", { style: `background:linear-gradient(to top, ${GRADIENT})` }), ...ticks),
        make("small", {}, "behind FIX"),
        make("span", { class: "key" }, make("i", { class: "swatch none" }), "no partner"),
        slider,
    ];
}

/** A histogram of signed distances with lines at ± RMSE and ± its limit. */
export function histogram({ near, within995 }, range, rmse, limit) {
    const domain = niceCeil(Math.max(within995 ?? 1, 1.15 * (rmse ?? 0)));
    const bins = 41, counts = new Array(bins).fill(0);
    for (const d of near)
        if (Math.abs(d) < domain) ++counts[Math.floor((d / domain + 1) / 2 * bins)];
    const most = Math.max(1, ...counts);
    const [w, h, left, top, bottom] = [344, 168, 34, 8, 34];
    const width = w - left - 6, height = h - top - bottom;
    const x = (d) => left + (d / domain + 1) / 2 * width;
    const y = (n) => top + height - n / most * height;
    const shape = svg("svg", { viewBox: `0 0 ${w} ${h}`, role: "img", "aria-label": "Histogram of the distances" });
    for (const share of [0.5, 1]) {
        const n = share * most;
        shape.append(svg("line", { class: "grid", x1: left, x2: w - 6, y1: y(n), y2: y(n) }),
            svg("text", { class: "axis", x: left - 5, y: y(n) + 4, "text-anchor": "end" }, figure(100 * n / Math.max(1, near.length), 2)));
    }
    counts.forEach((n, i) => {
        const middle = ((i + 0.5) / bins * 2 - 1) * domain;
        if (n === 0) return;
        shape.append(svg("rect", { class: "bin", x: left + i / bins * width + 0.4, width: width / bins - 0.8, y: y(n),
            height: top + height - y(n), fill: css(colourAt(0.5 + 0.5 * middle / range)) },
        svg("title", {}, `${figure(middle)} mm: ${count(n)} points`)));
    });
    shape.append(svg("line", { class: "base", x1: left, x2: w - 6, y1: top + height, y2: top + height }));
    for (const [value, kind] of [[limit, "limit"], [rmse, "rmse"]])
        for (const sign of [-1, 1])
            if (value && value <= domain)
                shape.append(svg("line", { class: kind, x1: x(sign * value), x2: x(sign * value), y1: top, y2: top + height }));
    for (const t of [-1, -0.5, 0, 0.5, 1])
        shape.append(svg("text", { class: "axis", x: x(t * domain), y: top + height + 15,
            "text-anchor": t === -1 ? "start" : t === 1 ? "end" : "middle" }, round(t * domain)));
    shape.append(svg("text", { class: "axis name", x: left + width / 2, y: h - 3, "text-anchor": "middle" }, "distance, mm"),
        svg("text", { class: "axis name", x: 0, y: top + 4 + height / 4, "text-anchor": "start" }, "%"));
    return shape;
}

/** Horizontal bars of { label, value, text, kind, remark }. */
export function bars(rows) {
    const most = Math.max(1e-12, ...rows.map((row) => row.value));
    return make("div", { class: "bars" }, ...rows.flatMap((row) => [
        make("div", { class: "label" }, row.label),
        make("div", { class: "track" }, make("i", { class: row.kind ?? "", style: `width:${Math.max(0.4, 100 * row.value / most)}%` })),
        make("div", { class: "amount" }, row.text),
        row.remark ? make("div", { class: "remark" }, row.remark) : make("div", { class: "remark" }),
    ]));
}

/** One bar for the whole, divided into its parts, and a list of them. */
export function stacked(parts) {
    const whole = parts.reduce((sum, part) => sum + part.value, 0);
    return make("div", { class: "stacked" },
        make("div", { class: "whole", role: "img", "aria-label": "Shares of the total time" },
            ...parts.map((part, i) => make("i", { class: `part${i}`, style: `flex-grow:${100 * part.value / whole}`, title: part.label }))),
        make("ul", {}, ...parts.map((part, i) => make("li", {}, make("i", { class: `swatch part${i}` }), make("span", {}, part.label),
            make("b", {}, seconds(part.value)), make("small", {}, percent(part.value / whole, 2)))),
        make("li", { class: "sum" }, make("i", { class: "swatch" }), make("span", {}, "Total"), make("b", {}, seconds(whole)), make("small", {}))));
}

/** How close a value is to its limit: the limit is in the middle, the passing side is shaded. */
export function margin(test) {
    const ratio = test.limit > 0 ? test.value / test.limit : 0;
    const at = 100 * Math.min(1, Math.max(0, ratio / 2));
    return make("div", { class: `margin ${test.outcome} ${test.isAtMost ? "most" : "least"}`, "aria-hidden": "true" },
        make("i", { style: `left:${at}%` }));
}

/** By how much, in words. */
export function byHowMuch(test) {
    if (test.value === null || test.limit === null || test.limit === 0) return "";
    const difference = test.value / test.limit - 1;
    if (Math.abs(difference) < 0.0005) return "at the limit";
    if (difference >= 1) return `${figure(test.value / test.limit)} times the limit`;
    return `${percent(Math.abs(difference), Math.abs(difference) < 0.1 ? 2 : 3)} ${difference > 0 ? "above" : "below"} the limit`;
}
