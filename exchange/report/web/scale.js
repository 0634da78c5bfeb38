// The colours of signed distances: from blue (behind FIX) through sand (on it) to red (in front of it).

export const STOPS = [
    [0.0, [33, 82, 156]], [0.25, [103, 160, 207]], [0.5, [236, 229, 208]], [0.75, [235, 144, 98]], [1.0, [176, 32, 38]],
];

/** Colour of a share of the scale, 0 to 1. */
export function colourAt(share) {
    const t = Math.min(1, Math.max(0, share));
    const i = Math.max(1, STOPS.findIndex(([at]) => t <= at));
    const [a, from] = STOPS[i - 1], [b, to] = STOPS[i];
    return from.map((c, k) => Math.round(c + (to[k] - c) * (t - a) / (b - a)));
}

export const css = ([r, g, b]) => `rgb(${r} ${g} ${b})`;

/** The next round number at or above: 1, 1.5, 2, 3, 4, 5, 6, 8 times a power of ten. */
export function niceCeil(value) {
    if (!(value > 0)) return 1;
    const power = 10 ** Math.floor(Math.log10(value));
    return [1, 1.5, 2, 3, 4, 5, 6, 8, 10].find((m) => m * power >= value * (1 - 1e-9)) * power;
}
