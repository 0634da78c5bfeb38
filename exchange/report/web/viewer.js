// The 3D view: two clouds of round points, lit from the camera, redrawn when something changes.
import {
    BufferAttribute, BufferGeometry, Color, GLSL3, Matrix4, PerspectiveCamera, Points, Quaternion, Scene, ShaderMaterial,
    Vector3, WebGLRenderer,
} from "three";
import { OrbitControls } from "three/addons/controls/OrbitControls.js";
import { STOPS } from "./scale.js";

const VERTEX = `
in float distance_;
uniform float size, pixels, range, back;
uniform bool byDistance;
uniform vec3 colour, none, stops[5];
out vec3 shade;
vec3 scaleColour(float share)
{
    float t = clamp(share, 0.0, 1.0) * 4.0;
    int i = min(int(t), 3);
    return mix(stops[i], stops[i + 1], t - float(i));
}
void main()
{
    vec4 eye = modelViewMatrix * vec4(position, 1.0);
    // Pushed back along its ray, so that the other cloud stays in front where they nearly coincide.
    gl_Position = projectionMatrix * vec4(eye.xyz * (1.0 + back / length(eye.xyz)), 1.0);
    gl_PointSize = clamp(size * pixels / -eye.z, 1.5, 48.0);
    vec3 n = normalMatrix * normal;
    float facing = dot(n, n) < 0.01 ? 0.8 : dot(normalize(n), normalize(-eye.xyz));
    vec3 base = colour;
    if (byDistance) base = distance_ > 1e29 ? none : scaleColour(0.5 + 0.5 * distance_ / range);
    // The back of a surface is dim, which tells the sides apart.
    shade = base * (facing >= 0.0 ? 0.42 + 0.58 * facing : 0.34 - 0.12 * facing);
}`;

const FRAGMENT = `
in vec3 shade;
out vec4 pixel;
void main()
{
    vec2 q = gl_PointCoord * 2.0 - 1.0;
    if (dot(q, q) > 1.0) discard;
    pixel = vec4(shade, 1.0);
}`;

const plain = (rgb) => new Vector3(...rgb.map((c) => c / 255));

function material() {
    return new ShaderMaterial({
        vertexShader: VERTEX, fragmentShader: FRAGMENT, glslVersion: GLSL3,
        uniforms: {
            size: { value: 1 }, pixels: { value: 1 }, range: { value: 1 }, back: { value: 0 }, byDistance: { value: false },
            colour: { value: new Vector3() }, none: { value: new Vector3() },
            stops: { value: STOPS.map(([, rgb]) => plain(rgb)) },
        },
    });
}

function points({ positions, normals }) {
    const geometry = new BufferGeometry();
    geometry.setAttribute("position", new BufferAttribute(positions, 3));
    geometry.setAttribute("normal", new BufferAttribute(normals, 3, true));
    geometry.setAttribute("distance_", new BufferAttribute(new Float32Array(positions.length / 3), 1));
    const object = new Points(geometry, material());
    object.matrixAutoUpdate = false;
    object.frustumCulled = false;
    return object;
}

/** Some of the points, moved: enough to find the bounds of a cloud. */
function sample(object) {
    const { array } = object.geometry.attributes.position;
    const step = 3 * Math.max(1, Math.floor(array.length / 3 / 4000));
    const out = [];
    for (let i = 0; i < array.length; i += step)
        out.push(new Vector3(array[i], array[i + 1], array[i + 2]).applyMatrix4(object.matrix));
    return out;
}

function sphereAround(list) {
    const low = new Vector3(Infinity, Infinity, Infinity), high = low.clone().negate();
    for (const p of list) { low.min(p); high.max(p); }
    const center = low.clone().add(high).multiplyScalar(0.5);
    let radius = 0;
    for (const p of list) radius = Math.max(radius, p.distanceTo(center));
    return { center, radius: radius || 1 };
}

export class Viewer {
    constructor(host, fix, flt) {
        this.host = host;
        this.renderer = new WebGLRenderer({ antialias: false, alpha: true, powerPreference: "high-performance" });
        this.renderer.setPixelRatio(Math.min(window.devicePixelRatio, 2));
        host.prepend(this.renderer.domElement);
        this.renderer.domElement.setAttribute("aria-label", "Both scans in 3D");
        this.scene = new Scene();
        this.camera = new PerspectiveCamera(32, 1, 0.1, 1000);
        this.fix = points(fix);
        this.flt = points(flt);
        this.scene.add(this.fix, this.flt);
        this.controls = new OrbitControls(this.camera, this.renderer.domElement);
        this.controls.addEventListener("change", () => this.draw());
        this.size = 1;
        this.onFrame = () => {};
        new ResizeObserver(() => this.resize()).observe(host);
        this.resize();
    }

    resize() {
        const { clientWidth: w, clientHeight: h } = this.host;
        this.renderer.setSize(w, h, false);
        this.camera.aspect = w / h;
        this.camera.updateProjectionMatrix();
        this.draw();
    }

    draw() {
        if (this.isDue) return;
        this.isDue = true;
        requestAnimationFrame(() => { this.isDue = false; this.drawNow(); });
    }

    drawNow() {
        const height = this.renderer.domElement.height;
        const pixels = height / (2 * Math.tan(this.camera.fov * Math.PI / 360));
        for (const object of [this.fix, this.flt]) {
            const u = object.material.uniforms;
            u.pixels.value = pixels;
            u.size.value = 2.8 * this.size * object.spacing;
        }
        this.renderer.render(this.scene, this.camera);
        this.onFrame(this.millimetresPerPixel());
    }

    /** Reading a pixel waits for the GPU; "finish" does not in every browser. */
    waitUntilDrawn() {
        const gl = this.renderer.getContext();
        gl.readPixels(0, 0, 1, 1, gl.RGBA, gl.UNSIGNED_BYTE, new Uint8Array(4));
    }

    /** Per CSS pixel, at the depth of the point that the camera rotates about. */
    millimetresPerPixel() {
        const distance = this.camera.position.distanceTo(this.controls.target);
        return 2 * distance * Math.tan(this.camera.fov * Math.PI / 360) / this.host.clientHeight;
    }

    /** Colours as "#rrggbb". */
    setColours({ fix, flt, none }) {
        const rgb = (hex) => { const c = new Color().setStyle(hex, ""); return new Vector3(c.r, c.g, c.b); };
        this.fix.material.uniforms.colour.value = rgb(fix);
        this.flt.material.uniforms.colour.value = rgb(flt);
        this.flt.material.uniforms.none.value = rgb(none);
        this.draw();
    }

    setDistances(values) {
        const attribute = this.flt.geometry.attributes.distance_;
        attribute.array.set(values);
        attribute.needsUpdate = true;
        this.draw();
    }

    setByDistance(on, range) {
        this.flt.material.uniforms.byDistance.value = on;
        this.flt.material.uniforms.range.value = range;
        this.fix.material.uniforms.back.value = on ? range + 2 * this.fix.spacing : 0;
        this.draw();
    }

    /** Moves FLT there, `smoothly` in half a second. */
    setPose(matrix, smoothly) {
        cancelAnimationFrame(this.moving);
        if (!smoothly) {
            this.flt.matrix.copy(matrix);
            this.flt.matrixWorldNeedsUpdate = true;
            this.draw();
            return;
        }
        const split = (m) => { const t = [new Vector3(), new Quaternion(), new Vector3()]; m.decompose(...t); return t; };
        const [p0, q0] = split(this.flt.matrix), [p1, q1] = split(matrix);
        const one = new Vector3(1, 1, 1), started = performance.now();
        const { center } = sphereAround(sample({ geometry: this.flt.geometry, matrix: new Matrix4() }));
        const from = center.clone().applyQuaternion(q0).add(p0), to = center.clone().applyQuaternion(q1).add(p1);
        const step = () => {
            const t = Math.min(1, (performance.now() - started) / 500), s = t * t * (3 - 2 * t);
            const q = q0.clone().slerp(q1, s); // about the cloud's middle, not about the scanner
            const p = from.clone().lerp(to, s).sub(center.clone().applyQuaternion(q));
            this.flt.matrix.compose(p, q, one);
            if (t >= 1) this.flt.matrix.copy(matrix);
            this.flt.matrixWorldNeedsUpdate = true;
            this.drawNow();
            if (t < 1) this.moving = requestAnimationFrame(step);
        };
        step();
    }

    /** Shows everything visible, from the side that most surfaces face. */
    fit(keepDirection) {
        const objects = [this.fix, this.flt].filter((o) => o.visible);
        const seen = objects.length ? objects : [this.fix];
        const { center, radius } = sphereAround(seen.flatMap(sample));
        const half = this.camera.fov * Math.PI / 360;
        const narrow = Math.min(half, Math.atan(Math.tan(half) * this.camera.aspect));
        const distance = 1.02 * radius / Math.sin(narrow);
        const direction = keepDirection ? this.camera.position.clone().sub(this.controls.target).normalize() : this.facing();
        this.controls.target.copy(center);
        this.camera.position.copy(center).addScaledVector(direction, distance);
        this.camera.near = distance / 200;
        this.camera.far = distance * 20;
        this.camera.updateProjectionMatrix();
        this.controls.update();
        this.draw();
    }

    /** The mean normal of FIX, rotated slightly; a fixed direction where a scan from all around has hardly any. */
    facing() {
        const { array } = this.fix.geometry.attributes.normal;
        const mean = new Vector3();
        for (let i = 0; i < array.length; i += 3) mean.add(new Vector3(array[i], array[i + 1], array[i + 2]));
        mean.multiplyScalar(3 / 127 / array.length);
        if (mean.length() < 0.15) mean.set(0.3, 0.25, 1);
        mean.normalize();
        if (Math.abs(mean.y) > 0.9) this.camera.up.set(0, 0, 1);
        return mean.applyAxisAngle(this.camera.up, 0.3);
    }
}
