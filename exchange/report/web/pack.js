// Decodes the clouds and distances that the tool packed.

function bytes(base64) {
    if (Uint8Array.fromBase64) return Uint8Array.fromBase64(base64);
    const text = atob(base64);
    const out = new Uint8Array(text.length);
    for (let i = 0; i < text.length; ++i) out[i] = text.charCodeAt(i);
    return out;
}

/** Positions relative to `origin`, mm, and normals as bytes. */
export function cloud({ low, size, positions, normals }, origin) {
    const codes = new Uint16Array(bytes(positions).buffer);
    const out = new Float32Array(codes.length);
    for (let k = 0; k < 3; ++k) {
        const step = size[k] / 65535, start = low[k] - origin[k];
        for (let i = k; i < codes.length; i += 3) out[i] = start + codes[i] * step;
    }
    return { positions: out, normals: new Int8Array(bytes(normals).buffer) };
}

export const NONE = 1e30;

/** Signed distances, mm; NONE where there is no partner. */
export function distances(base64, largest) {
    const codes = new Int16Array(bytes(base64).buffer);
    const out = new Float32Array(codes.length);
    for (let i = 0; i < codes.length; ++i) out[i] = codes[i] === -32768 ? NONE : codes[i] / 32767 * largest;
    return out;
}

/** Statistics of the points with a partner. */
export function describe(values) {
    const near = values.filter((d) => d < NONE);
    const sizes = near.map(Math.abs).sort();
    const sorted = near.slice().sort();
    const at = (list, share) => list.length ? list[Math.min(list.length - 1, Math.floor(share * list.length))] : null;
    let sum = 0;
    for (const d of near) sum += d * d;
    return {
        near, share: near.length / values.length, rms: near.length ? Math.sqrt(sum / near.length) : null,
        median: at(sorted, 0.5), within95: at(sizes, 0.95), within995: at(sizes, 0.995),
    };
}
