"use strict";
// The jobs come as data and are shown as text. What is chosen stands in the page's address, so that it can be kept and sent.
const jobs = JSON.parse(document.getElementById("jobs").textContent);
const texts = JSON.parse(document.getElementById("texts").textContent);
const byId = id => document.getElementById(id);
const form = byId("filters"), rows = byId("rows"), head = byId("head");
const kRows = 100;  // a page of the table
const kReasons = [[1, "The monitor sent it again."], [2, "It was restarted in the queue, or the spooler was: such a job is printed again."],
  [4, "Another job of its size began on the queue within a minute: perhaps it is the same receipt."]];
const kLane = 22, kAxis = 18, kMostLanes = 8;

const columns = [
  {name: "start", key: j => j.s, show: j => j.t, kind: "time"},
  {name: "queue", key: j => j.q, show: j => j.q},
  {name: "job", key: j => j.j, show: j => j.j, kind: "number"},
  {name: "port", key: j => j.p, show: j => j.p || "?"},
  {name: "path", key: j => j.w, show: j => j.w || "?"},
  {name: "bytes", key: j => j.b, show: j => j.b ?? "?", kind: "number"},
  {name: "seconds", key: j => seconds(j), show: j => seconds(j)?.toFixed(1) ?? "-", kind: "number"},
  {name: "outcome", key: j => j.o, show: j => j.o},
];
function seconds(j) { return j.e == null ? null : (j.e - j.s) / 1000; }
function outcomeOf(j) { return j.o.split(/[: ]/)[0] === "not" ? "not logged" : j.o.split(/[: [(]/)[0]; }
// The times are milliseconds since the first day of the year 0.
const kYear0 = new Date(Date.UTC(2000, 0, 1)).setUTCFullYear(0);
const clock = ms => new Date(ms + kYear0).toISOString().slice(0, 23).replace("T", " ");

let list = jobs, sortBy = 0, down = true, first = 0, open = new Set();
for (const j of jobs)
  j.x = [j.t, j.q, j.j, j.p, j.w, j.o, j.l].join(" ").toLowerCase();

function element(name, text, properties = {}) {
  const e = document.createElement(name);
  if (text != null) e.textContent = text;
  return Object.assign(e, properties);
}

function choices(name, values) {
  for (const v of [...new Set(values)].filter(v => v).sort()) form.elements[name].append(element("option", v, {value: v}));
}

columns.forEach((column, n) => {
  const th = element("th", null, {scope: "col"});
  const button = element("button", column.name, {type: "button"});
  button.onclick = () => { down = sortBy === n ? !down : false; sortBy = n; first = 0; sort(); draw(); };
  th.append(button);
  head.append(th);
});

function sort() {
  const key = columns[sortBy].key, sign = down ? -1 : 1;
  list.sort((a, b) => {
    const x = key(a), y = key(b);
    if (x == null || y == null) return (x == null) - (y == null);
    return sign * (x < y ? -1 : x > y ? 1 : a.n - b.n);
  });
}

function filter() {
  const f = Object.fromEntries(new FormData(form));
  const words = f.text.toLowerCase().split(/\s+/).filter(Boolean);
  const from = f.from.replace("T", " "), to = f.to && f.to.replace("T", " ") + "~";
  list = jobs.filter(j => (!f.queue || j.q === f.queue) && (!f.port || j.p === f.port) && (!f.outcome || outcomeOf(j) === f.outcome) &&
    (!from || j.t >= from) && (!to || j.t <= to) && (!f.twice || j.d) && words.every(w => j.x.includes(w)));
  first = 0;
  sort();
  const kept = new URLSearchParams(Object.entries(f).filter(([, v]) => v));
  history.replaceState(null, "", "#" + kept);
}

function restore() {
  form.reset();
  for (const [name, value] of new URLSearchParams(location.hash.slice(1))) {
    const field = form.elements[name];
    if (!field) continue;
    if (field.type === "checkbox") field.checked = true; else field.value = value;
  }
}

function story(j) {
  const tr = element("tr", null, {className: "story"}), td = element("td", null, {colSpan: columns.length});
  for (const [bit, text] of kReasons) if (j.d & bit) td.append(element("p", "May stand twice: " + text, {className: "mid"}));
  const ol = element("ol");
  for (const [time, line, text] of j.v) {
    const li = element("li", clock(time).slice(11) + "  " + texts[text] + " ");
    li.append(element("span", j.l.replace(/:\d+$/, ":" + line), {className: "line"}));
    ol.append(li);
  }
  td.append(ol);
  tr.append(td);
  return tr;
}

function row(j) {
  const tr = element("tr", null, {className: j.d ? "twice" : ""});
  columns.forEach((column, n) => {
    const td = element("td", n === 0 ? null : column.show(j), {className: column.name === "outcome" ? j.c : column.kind || ""});
    td.dataset.name = column.name;
    if (n === 0) {
      const button = element("button", column.show(j), {type: "button"});
      button.setAttribute("aria-expanded", open.has(j));
      button.setAttribute("aria-label", "job " + j.j + " of " + column.show(j) + ", its story");
      button.onclick = () => {
        if (!open.delete(j)) open.add(j);
        button.setAttribute("aria-expanded", open.has(j));
        if (open.has(j)) tr.after(story(j)); else tr.nextElementSibling.remove();
      };
      td.append(button);
    }
    tr.append(td);
  });
  return open.has(j) ? [tr, story(j)] : [tr];
}

function draw(from = first, count = kRows) {
  [...head.children].forEach((th, n) => th.setAttribute("aria-sort", n !== sortBy ? "none" : down ? "descending" : "ascending"));
  rows.replaceChildren(...list.slice(from, from + count).flatMap(row));
  const last = Math.min(from + count, list.length);
  byId("count").textContent = list.length ? (from + 1) + " to " + last + " of " + list.length + " jobs" : "no jobs";
  byId("previous").disabled = from === 0;
  byId("next").disabled = last === list.length;
}

// --- The time line

const kSteps = [1, 5, 15, 60, 300, 900, 3600, 3 * 3600, 6 * 3600, 86400, 7 * 86400, 30 * 86400].map(s => s * 1000);

function lanesOf(mine) {
  const ends = [];
  for (const j of mine) {
    let n = ends.findIndex(end => end <= j.s);
    if (n < 0) n = ends.length < kMostLanes ? ends.length : kMostLanes - 1;
    ends[n] = Math.max(ends[n] ?? 0, j.e ?? j.z);
    j.lane = n;
  }
  return Math.max(1, ends.length);
}

function drawLane(port, mine, begin, end) {
  const div = element("div", null, {className: "lane"}), canvas = element("canvas");
  const bad = mine.filter(j => j.c === "bad").length, twice = mine.filter(j => j.d).length;
  const about = (port || "port not logged") + ": " + mine.length + " jobs, " + bad + " refused or failed, " + twice + " may stand twice";
  div.append(element("div", about), canvas);
  byId("lanes").append(div);
  canvas.setAttribute("role", "img");
  canvas.setAttribute("aria-label", about);
  const count = lanesOf(mine), ratio = devicePixelRatio || 1, width = canvas.clientWidth || 800, height = count * kLane + kAxis;
  canvas.width = width * ratio;
  canvas.height = height * ratio;
  canvas.style.height = height + "px";
  const g = canvas.getContext("2d"), style = getComputedStyle(document.documentElement);
  const colour = name => style.getPropertyValue(name).trim();
  const x = t => (t - begin) / Math.max(1, end - begin) * (width - 4) + 2;
  g.scale(ratio, ratio);
  const step = kSteps.find(s => (end - begin) / s <= width / 90) ?? kSteps.at(-1);
  g.fillStyle = colour("--text");
  g.strokeStyle = colour("--line");
  g.font = "11px system-ui, sans-serif";
  for (let t = Math.ceil(begin / step) * step; t <= end; t += step) {
    g.beginPath(); g.moveTo(x(t), 0); g.lineTo(x(t), height); g.stroke();
    g.fillText(step >= 86400000 ? clock(t).slice(5, 10) : clock(t).slice(11, step < 60000 ? 19 : 16), x(t) + 2, height - 5);
  }
  for (const j of mine) {
    const top = j.lane * kLane, right = j.e ?? j.z;
    g.fillStyle = colour(j.c === "good" ? "--bar" : j.c === "bad" ? "--bad" : "--mid");
    g.fillRect(x(j.s), top + 6, Math.max(2, x(right) - x(j.s)), 10);
    for (const [kind, a, b] of j.f) {
      g.fillStyle = colour(kind === 0 ? "--mid" : "--bad");
      g.fillRect(x(a), kind === 0 ? top + 17 : top + 2, Math.max(2, x(b) - x(a)), 3);
    }
  }
  const at = event => {
    const t = begin + (event.offsetX - 2) / (width - 4) * (end - begin), lane = Math.floor(event.offsetY / kLane);
    const near = (end - begin) / width * 3;
    return mine.find(j => j.lane === lane && j.s - near <= t && t <= (j.e ?? j.z) + near);
  };
  canvas.onmousemove = event => { const j = at(event); canvas.title = j ? j.t + " job " + j.j + ": " + j.o : ""; };
  canvas.onclick = event => { const j = at(event); if (j) show(j); };
}

function drawTimeLine() {
  byId("lanes").replaceChildren();
  if (!list.length) return;
  const ports = new Map();
  let begin = Infinity, end = -Infinity;
  for (const j of [...list].sort((a, b) => a.s - b.s)) {
    if (!ports.has(j.p)) ports.set(j.p, []);
    ports.get(j.p).push(j);
    begin = Math.min(begin, j.s);
    end = Math.max(end, j.e ?? j.z);
  }
  for (const [port, mine] of ports) drawLane(port, mine, begin, end);
}

function show(j) {
  open.add(j);
  first = Math.floor(list.indexOf(j) / kRows) * kRows;
  draw();
  rows.querySelectorAll("button")[list.indexOf(j) - first]?.focus();
}

let drawing;
function choose() {
  filter();
  draw();
  clearTimeout(drawing);  // the picture comes when the typing pauses
  drawing = setTimeout(drawTimeLine, 150);
}

choices("queue", jobs.map(j => j.q));
choices("port", jobs.map(j => j.p));
choices("outcome", jobs.map(outcomeOf));
const twice = jobs.filter(j => j.d).length, bad = jobs.filter(j => j.c === "bad").length;
byId("summary").textContent = jobs.length + " jobs, " + bad + " refused or failed, " + twice + " may stand twice on paper";
byId("summary").className = twice || bad ? "bad" : "";
form.oninput = choose;
form.onreset = () => setTimeout(choose);
form.onsubmit = event => event.preventDefault();
byId("previous").onclick = () => { first = Math.max(0, first - kRows); draw(); };
byId("next").onclick = () => { first += kRows; draw(); };
onhashchange = () => { restore(); choose(); };
onresize = () => { clearTimeout(drawing); drawing = setTimeout(drawTimeLine, 150); };
onbeforeprint = () => draw(0, 2000);
onafterprint = () => draw();
restore();
filter();
draw();
drawTimeLine();
document.body.dataset.ready = "1";
