// Numbers and elements as text. Every figure that is shown goes through here, with its unit.

const NARROW = "\u202f"; // between a figure and its unit, and between groups of digits

export function count(value) {
    return Math.round(value).toString().replace(/\B(?=(\d{3})+$)/g, NARROW);
}

/** A figure with that many significant digits, in powers of ten only if it is tiny or huge. */
export function figure(value, digits = 3) {
    if (value === null || value === undefined || !Number.isFinite(value)) return "\u2013";
    if (value === 0) return "0";
    const size = Math.abs(value);
    if (size >= 1e7 || size < 1e-4) return value.toExponential(digits - 1).replace("-", "\u2212");
    const decimals = Math.max(0, digits - 1 - Math.floor(Math.log10(size)));
    const [whole, part] = size.toFixed(decimals).split(".");
    return (value < 0 ? "\u2212" : "") + count(Number(whole)) + (part ? "." + part : "");
}

/** A round number, such as a tick of an axis, with no more digits than it has. */
export function round(value) {
    return figure(value, 3).replace(/(\.\d*?)0+$/, "$1").replace(/\.$/, "");
}

const UNITS = { mm: "mm", mm2: "mm\u00b2", rad: "\u00b0", s: "s", "%": "%" };

/** The same with a unit; angles come in radians and are shown in degrees. */
export function quantity(value, unit, digits = 3) {
    const shown = unit === "rad" && value !== null ? value * 180 / Math.PI : value;
    const text = figure(shown, digits);
    return unit && text !== "\u2013" ? text + (unit === "rad" ? "" : NARROW) + UNITS[unit] : text;
}

export function percent(share, digits = 3) {
    return quantity(share === null ? null : share * 100, "%", digits);
}

export function seconds(value) {
    return value < 1 ? figure(value * 1000, value < 0.01 ? 2 : 3) + NARROW + "ms" : figure(value, 3) + NARROW + "s";
}

export function capital(text) {
    return text.charAt(0).toUpperCase() + text.slice(1);
}

/** A path that may break after its slashes. */
export function breakable(path) {
    return path.replace(/[\\/]/g, "$&\u200b");
}

export function fileName(path) {
    return path.split(/[\\/]/).pop();
}

/** An element of HTML. Children that are strings become text, so that no file name can become markup. */
export function make(tag, properties = {}, ...children) {
    return fill(document.createElement(tag), properties, children);
}

export function svg(tag, properties = {}, ...children) {
    return fill(document.createElementNS("http://www.w3.org/2000/svg", tag), properties, children);
}

function fill(element, properties, children) {
    for (const [name, value] of Object.entries(properties)) {
        if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
        else if (value !== undefined && value !== false) element.setAttribute(name, value === true ? "" : value);
    }
    element.append(...children.filter((child) => child !== null && child !== undefined));
    return element;
}
