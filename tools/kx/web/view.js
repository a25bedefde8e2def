// kx view: draws the state pushed by kx over a WebSocket; sends commands with the run's token.
"use strict";

const HISTORY_MS = 10000;
const COLORS = ["#4cc2ff", "#ff7a59", "#3ecf8e", "#f5b942", "#c38bff", "#ff5ca8", "#9be15d"];
const AXES = [["x", 1000, "mm"], ["y", 1000, "mm"], ["z", 1000, "mm"], ["rx", 1, "rad"], ["ry", 1, "rad"], ["rz", 1, "rad"]];

let token = (window.KX && window.KX.token) || "";
const readOnly = !!(window.KX && window.KX.readOnly);
const views = new Map();  // arm id -> view
let lastState = null;
let rate = { n: 0, since: performance.now(), hz: 0 };
window.kxStats = { messages: 0 };  // states received, for scripts driving the page

function $(sel, root) { return (root || document).querySelector(sel); }
function el(tag, cls, text) {
  const e = document.createElement(tag);
  if (cls) e.className = cls;
  if (text !== undefined) e.textContent = text;
  return e;
}

// Touches the page only on a change: each change costs a frame, which a software renderer feels.
function setText(e, text) {
  if (e.textContent !== text) e.textContent = text;
}

function toast(text, good) {
  const t = $("#toast");
  t.textContent = text;
  t.className = "toast" + (good ? " good" : "");
  t.hidden = false;
  clearTimeout(toast.timer);
  toast.timer = setTimeout(() => { t.hidden = true; }, 2500);
}

// ---- commands ------------------------------------------------------------
async function command(body) {
  if (!token) { toast("Commands need the token printed by kx view"); return; }
  try {
    const r = await fetch("/api/command", {
      method: "POST", headers: { "Content-Type": "application/json", "X-KX-Token": token },
      body: JSON.stringify(body),
    });
    const reply = await r.json();
    if (!reply.ok) toast(`${body.action}: ${reply.error}`);
    else if (body.action !== "jog") toast(`${body.action} done`, true);
  } catch (e) {
    toast(`${body.action}: ${e}`);
  }
}

// ---- 3D figure -------------------------------------------------------------
class Figure {
  constructor(box) {
    this.box = box;
    this.az = -0.9; this.el = 0.45; this.dist = 2.2;
    this.target = new THREE.Vector3(0, 0, 0.35);
    try {
      this.renderer = new THREE.WebGLRenderer({ antialias: true, alpha: true, preserveDrawingBuffer: true });
    } catch (e) {
      this.renderer = null;
    }
    if (this.renderer) this.initGl(); else this.init2d();
    this.bindMouse();
  }
  initGl() {
    const r = this.renderer;
    r.setPixelRatio(window.devicePixelRatio || 1);
    this.box.prepend(r.domElement);
    this.canvas = r.domElement;
    this.scene = new THREE.Scene();
    this.camera = new THREE.PerspectiveCamera(40, 1, 0.01, 50);
    this.camera.up.set(0, 0, 1);
    this.scene.add(new THREE.HemisphereLight(0xdfefff, 0x202830, 1.0));
    const sun = new THREE.DirectionalLight(0xffffff, 0.7);
    sun.position.set(2, -3, 4);
    this.scene.add(sun);
    const grid = new THREE.GridHelper(2, 20, 0x3a4a5a, 0x243240);
    grid.rotation.x = Math.PI / 2;
    this.scene.add(grid);
    this.scene.add(new THREE.AxesHelper(0.25));  // base frame
    this.tool = new THREE.AxesHelper(0.12);       // tool frame
    this.tool.matrixAutoUpdate = false;
    this.scene.add(this.tool);
    this.linkMat = new THREE.MeshStandardMaterial({ color: 0xc8d4e0, metalness: 0.3, roughness: 0.45 });
    this.jointMat = new THREE.MeshStandardMaterial({ color: 0x4cc2ff, metalness: 0.2, roughness: 0.35 });
    this.links = []; this.joints = [];
    this.base = new THREE.Mesh(new THREE.CylinderGeometry(0.09, 0.11, 0.04, 32),
      new THREE.MeshStandardMaterial({ color: 0x55606c, roughness: 0.6 }));
    this.base.rotation.x = Math.PI / 2;
    this.base.position.z = 0.02;
    this.scene.add(this.base);
  }
  init2d() {
    this.canvas = el("canvas");
    this.box.prepend(this.canvas);
    this.ctx = this.canvas.getContext("2d");
  }
  bindMouse() {
    let drag = null;
    this.canvas.addEventListener("mousedown", (e) => { drag = [e.clientX, e.clientY]; });
    window.addEventListener("mouseup", () => { drag = null; });
    window.addEventListener("mousemove", (e) => {
      if (!drag) return;
      this.az -= (e.clientX - drag[0]) * 0.01;
      this.el = Math.max(-0.2, Math.min(1.45, this.el + (e.clientY - drag[1]) * 0.01));
      drag = [e.clientX, e.clientY];
    });
    this.canvas.addEventListener("wheel", (e) => {
      e.preventDefault();
      this.dist = Math.max(0.5, Math.min(8, this.dist * (e.deltaY > 0 ? 1.1 : 0.9)));
    }, { passive: false });
  }
  fit(points) {
    if (this.fitted) return;
    let reach = 0.3;
    for (let i = 0; i < points.length; i += 3) reach = Math.max(reach, Math.hypot(points[i], points[i + 1], points[i + 2]));
    this.dist = reach * 2.6;
    this.target.set(0, 0, reach * 0.4);
    this.fitted = true;
  }
  // Draws only when the figure, the camera or the size changed: a software renderer (no GPU)
  // cannot afford a frame every refresh, and a busy page answers late.
  draw(arm) {
    const p = arm.figure;
    if (!p || !p.length) return;
    this.fit(p);
    const w = this.box.clientWidth, h = this.box.clientHeight;
    const key = [p, arm.flange, arm.tool_frame, this.az, this.el, this.dist, w, h].join();
    if (key === this.drawn) return;
    this.drawn = key;
    if (this.renderer) this.drawGl(arm, p, w, h); else this.draw2d(arm, p, w, h);
  }
  drawGl(arm, p, w, h) {
    const V = THREE.Vector3;
    const pts = [];
    for (let i = 0; i < p.length; i += 3) pts.push(new V(p[i], p[i + 1], p[i + 2]));
    const segs = [];
    for (let i = 1; i < pts.length; i++) if (pts[i].distanceTo(pts[i - 1]) > 1e-4) segs.push([pts[i - 1], pts[i]]);
    while (this.links.length < segs.length) {
      const m = new THREE.Mesh(new THREE.CylinderGeometry(0.028, 0.028, 1, 20), this.linkMat);
      this.links.push(m); this.scene.add(m);
    }
    while (this.joints.length < pts.length) {
      const s = new THREE.Mesh(new THREE.SphereGeometry(0.04, 20, 14), this.jointMat);
      this.joints.push(s); this.scene.add(s);
    }
    const up = new V(0, 1, 0);
    this.links.forEach((m, i) => {
      m.visible = i < segs.length;
      if (!m.visible) return;
      const [a, b] = segs[i];
      const d = new V().subVectors(b, a);
      m.scale.set(1, d.length(), 1);
      m.position.copy(a).addScaledVector(d, 0.5);
      m.quaternion.setFromUnitVectors(up, d.normalize());
    });
    this.joints.forEach((s, i) => { s.visible = i < pts.length; if (s.visible) s.position.copy(pts[i]); });
    this.tool.matrix.copy(toolMatrix(arm));
    this.tool.matrixWorldNeedsUpdate = true;
    const r = this.renderer;
    if (r.domElement.width !== Math.round(w * r.getPixelRatio())) { r.setSize(w, h, false); }
    this.camera.aspect = w / h;
    this.camera.updateProjectionMatrix();
    const c = Math.cos(this.el);
    this.camera.position.set(this.target.x + this.dist * c * Math.cos(this.az),
      this.target.y + this.dist * c * Math.sin(this.az), this.target.z + this.dist * Math.sin(this.el));
    this.camera.lookAt(this.target);
    r.render(this.scene, this.camera);
  }
  // Without WebGL: the same figure, projected on a 2D canvas.
  draw2d(arm, p, w, h) {
    const cv = this.canvas, g = this.ctx, dpr = window.devicePixelRatio || 1;
    if (cv.width !== w * dpr) { cv.width = w * dpr; cv.height = h * dpr; }
    g.setTransform(dpr, 0, 0, dpr, 0, 0);
    g.clearRect(0, 0, w, h);
    const ca = Math.cos(this.az), sa = Math.sin(this.az), ce = Math.cos(this.el), se = Math.sin(this.el);
    const s = Math.min(w, h) / this.dist * 1.1;
    const proj = (x, y, z) => {
      const u = -x * sa + y * ca, v = z * ce - (x * ca + y * sa) * se;
      return [w / 2 + u * s, h * 0.82 - v * s];
    };
    const axes = (m, len) => {
      [["#ff5c5c", 0], ["#3ecf8e", 1], ["#4cc2ff", 2]].forEach(([col, k]) => {
        const o = proj(m[3], m[7], m[11]);
        const e = proj(m[3] + m[k] * len, m[7] + m[4 + k] * len, m[11] + m[8 + k] * len);
        g.strokeStyle = col; g.lineWidth = 2; g.beginPath(); g.moveTo(...o); g.lineTo(...e); g.stroke();
      });
    };
    axes([1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0], 0.25);
    g.strokeStyle = "#c8d4e0"; g.lineWidth = 7; g.lineCap = "round"; g.lineJoin = "round";
    g.beginPath();
    for (let i = 0; i < p.length; i += 3) g[i ? "lineTo" : "moveTo"](...proj(p[i], p[i + 1], p[i + 2]));
    g.stroke();
    g.fillStyle = "#4cc2ff";
    for (let i = 0; i < p.length; i += 3) { const q = proj(p[i], p[i + 1], p[i + 2]); g.beginPath(); g.arc(q[0], q[1], 4, 0, 7); g.fill(); }
    const t = toolMatrix(arm).elements;  // column-major
    axes([t[0], t[4], t[8], t[12], t[1], t[5], t[9], t[13], t[2], t[6], t[10], t[14]], 0.12);
  }
}

// The tool frame: flange (3 x 4 rows) times the tool frame's pose (x y z rx ry rz, R = Rz Ry Rx).
function toolMatrix(arm) {
  const f = arm.flange, tf = arm.tool_frame || [0, 0, 0, 0, 0, 0];
  const F = new THREE.Matrix4().set(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10], f[11], 0, 0, 0, 1);
  const T = new THREE.Matrix4().makeRotationFromEuler(new THREE.Euler(tf[3], tf[4], tf[5], "ZYX"));
  T.setPosition(new THREE.Vector3(tf[0], tf[1], tf[2]));
  return F.multiply(T);
}

// ---- one arm's card --------------------------------------------------------
function buildArm(arm) {
  const card = el("section", "arm");
  card.id = `arm-${arm.id}`;
  const head = el("div", "arm-head");
  head.append(el("span", "arm-title", `Arm ${arm.id}`), el("span", "arm-sub", `${arm.model}-${arm.edition} · ${arm.address}`));
  const pill = el("span", "pill", "…");
  head.append(pill, el("div", "spacer"));
  const clear = el("button", "btn cmd", "Clear errors");
  clear.id = `clear-${arm.id}`;
  clear.onclick = () => command({ arm: arm.id, action: "clear" });
  const stop = el("button", "btn stop cmd", "■ Stop");
  stop.id = `stop-${arm.id}`;
  stop.onclick = () => command({ arm: arm.id, action: "stop" });
  head.append(clear, stop);

  const body = el("div", "arm-body");
  const box = el("div", "view3d");
  box.append(el("span", "hint", "drag to turn · wheel to zoom"));
  const right = el("div");
  const joints = el("div", "joints");
  const rows = [];
  for (let j = 1; j <= arm.dof; j++) {
    const row = el("div", "joint");
    const bar = el("div", "bar");
    const zero = el("div", "zero"), fill = el("div", "fill"), mark = el("div", "mark");
    bar.append(zero, fill, mark);
    const val = el("span", "jval", "–");
    val.id = `a${arm.id}-j${j}`;
    val.dataset.arm = arm.id; val.dataset.joint = j;
    const jog = el("div", "jog cmd");
    for (const dir of ["-", "+"]) {
      const b = el("button", "btn small", dir === "-" ? "−" : "+");
      b.title = `jog joint ${j} ${dir}5°`;
      b.onclick = () => command({ arm: arm.id, action: "jog", axis: String(j), dir });
      jog.append(b);
    }
    row.append(el("span", "jname", `J${j}`), bar, val, jog);
    joints.append(row);
    rows.push({ bar, zero, fill, mark, val });
  }
  const pose = el("div", "pose");
  const poseVals = AXES.map(([k, , unit]) => {
    const d = el("div");
    const v = el("span", "v", "–");
    v.id = `a${arm.id}-${k}`;
    d.append(el("span", "k", `${k} (${unit})`), v);
    pose.append(d);
    return v;
  });
  const cart = el("div", "cart-jog cmd");
  cart.append(el("span", "lbl", "jog tool"));
  for (const [k] of AXES) for (const dir of ["-", "+"]) {
    const b = el("button", "btn small", `${k}${dir === "-" ? "−" : "+"}`);
    b.onclick = () => command({ arm: arm.id, action: "jog", axis: k, dir });
    cart.append(b);
  }
  right.append(joints, pose, cart);
  body.append(box, right);

  const foot = el("div", "arm-foot");
  const plots = el("div");
  const plot = el("canvas", "plot");
  const legend = el("div", "legend");
  for (let j = 0; j < arm.dof; j++) {
    const s = el("span"); const i = el("i"); i.style.background = COLORS[j];
    s.append(i, `J${j + 1}`); legend.append(s);
  }
  plots.append(plot, legend);
  let forcePlot = null;
  if (arm.force) {
    forcePlot = el("canvas", "plot force");
    const fl = el("div", "legend");
    ["Fx", "Fy", "Fz"].forEach((name, k) => {
      const s = el("span"); const i = el("i"); i.style.background = COLORS[k];
      s.append(i, `${name} (N)`); fl.append(s);
    });
    plots.append(forcePlot, fl);
  }
  const side = el("div", "side");
  const errors = el("div", "errors ok", "none");
  errors.id = `errors-${arm.id}`;
  const events = el("ul", "events");
  side.append(el("h4", "", "Errors"), errors, el("h4", "", "Events"), events);
  foot.append(plots, side);

  card.append(head, body, foot);
  $("#arms").append(card);
  return { card, pill, rows, poseVals, plot, forcePlot, errors, events, figure: new Figure(box), history: [], lastEvents: "" };
}

function render(state) {
  lastState = state;
  for (const arm of state.arms) {
    let v = views.get(arm.id);
    if (!v) { v = buildArm(arm); views.set(arm.id, v); }
    const moving = /^move|drag|tech/.test(arm.status);
    setText(v.pill, arm.online ? arm.status : "no data");
    v.pill.className = "pill" + (!arm.online ? " offline" : moving ? " moving" : /stop|pause/.test(arm.status) ? " stopped" : "");
    arm.joints.forEach((q, j) => {
      const r = v.rows[j], lo = arm.limits.min[j], hi = arm.limits.max[j];
      const span = hi - lo || 1;
      const pct = (x) => Math.max(0, Math.min(100, (x - lo) / span * 100));
      const z = pct(0), at = pct(q);
      r.zero.style.left = `${z}%`;
      r.fill.style.left = `${Math.min(z, at)}%`;
      r.fill.style.width = `${Math.abs(at - z)}%`;
      r.mark.style.left = `${at}%`;
      r.bar.classList.toggle("near", at < 5 || at > 95);
      r.bar.title = `limits ${lo.toFixed(1)}° .. ${hi.toFixed(1)}°`;
      setText(r.val, q.toFixed(2) + "°");
    });
    AXES.forEach(([k, scale], i) => setText(v.poseVals[i], (arm.pose[k] * scale).toFixed(scale > 1 ? 1 : 4)));
    setText(v.errors, arm.errors.length ? arm.errors.join(", ") : "none");
    v.errors.className = "errors " + (arm.errors.length ? "bad" : "ok");
    const evKey = JSON.stringify(arm.events);
    if (evKey !== v.lastEvents) {
      v.lastEvents = evKey;
      v.events.replaceChildren(...arm.events.slice(-8).reverse().map((e) => {
        const li = el("li");
        li.append(el("time", "", new Date(e.time).toLocaleTimeString()), el("span", "", e.text));
        return li;
      }));
      if (!arm.events.length) v.events.append(el("li", "", "none yet"));
    }
    v.history.push({ t: state.time, q: arm.joints, f: arm.force });
    while (v.history.length && v.history[0].t < state.time - HISTORY_MS) v.history.shift();
    v.arm = arm;
    v.fresh = true;  // the plots move on with every state
  }
}

// Joints over the last 10 s on their own scale; the force (N) likewise.
function drawPlot(canvas, history, pick, n, now, unit) {
  const w = canvas.clientWidth, h = canvas.clientHeight, dpr = window.devicePixelRatio || 1;
  if (canvas.width !== w * dpr) { canvas.width = w * dpr; canvas.height = h * dpr; }
  const g = canvas.getContext("2d");
  g.setTransform(dpr, 0, 0, dpr, 0, 0);
  g.clearRect(0, 0, w, h);
  let lo = Infinity, hi = -Infinity;
  for (const s of history) for (let j = 0; j < n; j++) { const y = pick(s)[j]; lo = Math.min(lo, y); hi = Math.max(hi, y); }
  if (!isFinite(lo)) return;
  if (hi - lo < 10) { const m = (hi + lo) / 2; lo = m - 5; hi = m + 5; }
  const pad = 16, X = (t) => 34 + (w - 40) * (1 - (now - t) / HISTORY_MS), Y = (y) => pad + (h - 2 * pad) * (1 - (y - lo) / (hi - lo));
  g.strokeStyle = "#243240"; g.fillStyle = "#6b7b8c"; g.font = "10px sans-serif"; g.lineWidth = 1;
  for (let k = 0; k <= 2; k++) {
    const y = lo + (hi - lo) * k / 2;
    g.beginPath(); g.moveTo(34, Y(y)); g.lineTo(w - 6, Y(y)); g.stroke();
    g.fillText(y.toFixed(0), 2, Y(y) + 3);
  }
  for (let s = 0; s <= 10; s += 2) g.fillText(`-${10 - s}s`, X(now - (10 - s) * 1000) - 10, h - 3);
  g.fillText(unit, 2, 10);
  g.lineWidth = 1.6;
  for (let j = 0; j < n; j++) {
    g.strokeStyle = COLORS[j % COLORS.length];
    g.beginPath();
    history.forEach((s, i) => g[i ? "lineTo" : "moveTo"](X(s.t), Y(pick(s)[j])));
    g.stroke();
  }
}

function frame() {
  if (lastState) {
    for (const v of views.values()) {
      if (!v.arm) continue;
      v.figure.draw(v.arm);
      if (!v.fresh) continue;
      v.fresh = false;
      drawPlot(v.plot, v.history, (s) => s.q, v.arm.dof, lastState.time, "deg");
      if (v.forcePlot) drawPlot(v.forcePlot, v.history.filter((s) => s.f), (s) => s.f, 3, lastState.time, "N");
    }
  }
  requestAnimationFrame(frame);
}

// ---- the state stream --------------------------------------------------------
function setLink(kind, text) {
  const link = $("#link");
  if (link.className !== "link " + kind) link.className = "link " + kind;
  setText($("#link-text"), text);
}

function onState(state) {
  render(state);
  window.kxStats.messages++;
  rate.n++;
  const t = performance.now();
  if (t - rate.since > 1000) { rate.hz = rate.n * 1000 / (t - rate.since); rate.n = 0; rate.since = t; }
  setLink("live", `live · ${rate.hz.toFixed(0)} Hz · ${state.arms.length} arm${state.arms.length === 1 ? "" : "s"}`);
}

function connect() {
  if (!token) { poll(); return; }  // without the token: read the state only
  const ws = new WebSocket(`ws://${location.host}/ws?token=${encodeURIComponent(token)}`);
  ws.onmessage = (m) => {
    const msg = JSON.parse(m.data);
    if (msg.reply) { if (!msg.reply.ok) toast(msg.reply.error); return; }
    onState(msg);
  };
  ws.onclose = () => { setLink("down", "disconnected · retrying"); setTimeout(connect, 1000); };
}

async function poll() {
  try {
    const r = await fetch("/api/state", { cache: "no-store" });
    onState(await r.json());
  } catch (e) {
    setLink("down", "disconnected · retrying");
  }
  setTimeout(poll, token ? 1000 : 40);
}

function start() {
  const fromHash = new URLSearchParams(location.hash.slice(1)).get("token");
  if (fromHash) { token = fromHash; sessionStorage.setItem("kx-token", token); history.replaceState(null, "", location.pathname); }
  if (!token) token = sessionStorage.getItem("kx-token") || "";
  if (readOnly) { document.body.classList.add("ro"); $("#ro-badge").hidden = false; $("#stop-all").hidden = true; }
  if (!token && !readOnly) {
    const form = $("#token-form");
    form.hidden = false;
    form.onsubmit = (e) => {
      e.preventDefault();
      token = $("#token-input").value.trim();
      sessionStorage.setItem("kx-token", token);
      form.hidden = true;
      location.reload();
    };
  }
  $("#stop-all").onclick = () => command({ arm: "all", action: "stop" });
  connect();
  requestAnimationFrame(frame);
}

start();
