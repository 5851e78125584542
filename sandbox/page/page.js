// The sandbox's page: the journal live, the state of the sale, and forms for
// the control routes. Every value goes into the page as text, never as HTML.
"use strict";

const journalKept = 500;
let lastEntry = null;   // the newest entry shown
let entries = [];       // newest first
let statusNames = { orders: {}, actionOrders: {} };
const apiNames = new Set();

// An element with attributes and children; strings become text nodes.
function el(tag, attributes, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attributes || {})) {
    if (key === "className") node.className = value; else node.setAttribute(key, value);
  }
  for (const child of children) node.append(child instanceof Node ? child : String(child ?? ""));
  return node;
}

// GET a control route: its envelope's data; throws with the envelope's info.
async function getData(path) {
  const reply = await fetch(path, { cache: "no-store" });
  const envelope = await reply.json();
  if (!envelope.status) throw new Error(envelope.info);
  return envelope.data;
}

function setLive(on, why) {
  const live = document.getElementById("live");
  live.textContent = on ? "live" : "no answer" + (why ? ": " + why : "");
  live.className = "live " + (on ? "on" : "off");
}

function timeOf(seconds) {
  const d = new Date(seconds * 1000);
  const two = n => String(n).padStart(2, "0");
  return `${two(d.getHours())}:${two(d.getMinutes())}:${two(d.getSeconds())}.${String(d.getMilliseconds()).padStart(3, "0")}`;
}

// --- The journal -----------------------------------------------------------

const replyKept = 2048;  // bytes of a reply the journal keeps

function journalItem(e) {
  const summary = el("summary", {},
    `#${e.entry}  ${timeOf(e.time)}  ${e.method} `, el("b", {}, e.api), "  ",
    el("span", { className: e.status === 200 ? "" : "bad" }, e.status === 0 ? "no reply" : e.status),
    `  ${e.replyBytes} B  ${e.ms} ms`,
    e.applied ? el("span", { className: "applied" }, "  " + e.applied) : "");
  const details = el("details", {}, summary,
    el("div", { className: "muted" }, "parameters"), el("pre", {}, JSON.stringify(e.params, null, 1)),
    el("div", { className: "muted" }, "reply" + (e.replyBytes > replyKept ? ` (its first 2 KiB of ${e.replyBytes} bytes)` : "")),
    el("pre", {}, e.reply));
  return el("li", { "data-api": e.api }, details);
}

function showJournal() {
  const filter = document.getElementById("journal-filter").value.trim().toLowerCase();
  const list = document.getElementById("journal");
  const open = new Set([...list.querySelectorAll("details[open]")].map(d => d.parentElement.dataset.entry));
  const shown = entries.filter(e => !filter || e.api.toLowerCase().includes(filter));
  list.replaceChildren(...shown.map(e => {
    const item = journalItem(e);
    item.dataset.entry = e.entry;
    if (open.has(String(e.entry))) item.firstChild.open = true;
    return item;
  }));
  document.getElementById("journal-count").textContent = `${shown.length} of the last ${entries.length}`;
}

async function pollJournal() {
  const query = lastEntry === null ? "limit=200" : `since=${lastEntry}&limit=${journalKept}`;
  const fresh = await getData("/sandbox/requests?" + query);
  if (fresh.length === 0) return;
  for (const e of fresh) {
    entries.unshift(e);
    lastEntry = Math.max(lastEntry ?? 0, e.entry);
    if (!apiNames.has(e.api)) {
      apiNames.add(e.api);
      document.getElementById("api-names").append(el("option", { value: e.api }));
    }
  }
  entries.length = Math.min(entries.length, journalKept);
  showJournal();
}

// --- The state -------------------------------------------------------------

function rows(tbody, items, cells) {
  tbody.replaceChildren(...items.map(item => el("tr", {}, ...cells(item).map(c => el("td", {}, c)))));
}

function statusOf(names, code) {
  const name = names[String(code)];
  return name === undefined ? String(code) : `${code} ${name}`;
}

function showState(state) {
  statusNames = state.statusNames || statusNames;
  rows(document.querySelector("#orders tbody"), [...state.orders].reverse(),
    o => [o.ID, o.SN, statusOf(statusNames.orders, o.Status), o.CTUserName, o.Amount, o.Remarks]);
  rows(document.querySelector("#action-orders tbody"), [...state.actionOrders].reverse(), o => {
    const info = o.orderInfo || {};
    return [info.ID, info.SN, statusOf(statusNames.actionOrders, info.Status), info.CustomerName, info.Amount];
  });
  document.getElementById("chats").replaceChildren(...state.chats.map(c =>
    el("li", {}, el("span", { className: "muted" }, `user ${c.UserID} · ${timeOf(c.CreateTime)} · `), c.Content)));
  document.getElementById("pushes").replaceChildren(...state.pushMessages.map(p =>
    el("li", {}, el("span", { className: "muted" }, `#${p.ID} to user ${p.ReceiverID} · ${p.Type} · `), p.Content)));
  document.getElementById("uploads").replaceChildren(...state.uploads.map(u =>
    el("li", {}, el("a", { href: "/uploads/sign/" + encodeURIComponent(u.storedAs), target: "_blank" }, u.storedAs),
      el("span", { className: "muted" }, `  ${u.size} B · ${u.fileName} · ${u.receipts} receipt(s)`))));
  const locks = [...state.lockedPhones, ...state.lockedImeis];
  document.getElementById("locks").textContent = locks.length ? locks.join(", ") : "none";
}

function showFaults(faults) {
  document.getElementById("faults").replaceChildren(...(faults.length ? faults.map(f =>
    el("li", {}, el("b", {}, f.api), " ", JSON.stringify(f.scenario ? { scenario: f.scenario } : f, (k, v) => k === "api" ? undefined : v)))
    : [el("li", { className: "muted" }, "none")]));
}

let lastState = "";
async function pollState() {
  const [state, faults] = await Promise.all([getData("/sandbox/state"), getData("/sandbox/faults")]);
  const text = JSON.stringify([state, faults]);
  if (text === lastState) return;
  lastState = text;
  showState(state);
  showFaults(faults);
}

// --- Forms -----------------------------------------------------------------

async function submit(form, event) {
  event.preventDefault();
  if (form.dataset.confirm && !window.confirm(form.dataset.confirm)) return;
  const out = form.querySelector("output");
  const fields = new URLSearchParams();
  for (const [key, value] of new FormData(form)) if (String(value).trim() !== "") fields.append(key, value);
  try {
    const reply = await fetch(form.dataset.path, { method: "POST", body: fields });
    const envelope = await reply.json();
    out.textContent = envelope.info;
    out.className = envelope.status ? "ok" : "refused";
    pollState().catch(() => {});
  } catch (e) {
    out.textContent = "no answer: " + e.message;
    out.className = "refused";
  }
}

// Polls for ever, each poll after the last one ended.
function every(ms, poll) {
  const run = async () => {
    try {
      await poll();
      setLive(true);
    } catch (e) {
      setLive(false, e.message);
    }
    setTimeout(run, ms);
  };
  run();
}

document.addEventListener("DOMContentLoaded", () => {
  for (const form of document.querySelectorAll("form[data-path]")) form.addEventListener("submit", e => submit(form, e));
  document.getElementById("journal-filter").addEventListener("input", showJournal);
  every(500, pollJournal);
  every(1000, pollState);
});
