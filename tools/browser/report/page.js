"use strict";
// Shows the report's data. Whatever comes from mail or from the machine becomes text nodes and nothing else.
(() => {
const data = JSON.parse(document.getElementById("data").textContent);
const count = value => Number(value).toLocaleString("en-GB");
const plural = (value, one, many) => `${count(value)} ${value === 1 ? one : many}`;

// An element with attributes and children; texts become text nodes.
function make(name, attributes, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes || {})) {
    if (value === true) element.setAttribute(key, "");
    else if (value !== false && value !== null && value !== undefined) element.setAttribute(key, value);
  }
  element.append(...children.flat(Infinity).filter(child => child !== null && child !== undefined));
  return element;
}

// Characters that are not seen but change what is: controls, directions, joints, line and paragraph separators, tags.
const controls = /[\u0000-\u0009\u000b-\u001f\u007f-\u009f\u00ad\u034f\u061c\u115f\u1160\u17b4\u17b5\u180e\u200b\u200e\u200f\u2028-\u202e\u2060-\u206f\ufeff\ufff9-\ufffb]|[\u{e0000}-\u{e007f}]/gu;
const controlNames = {
  0x09: "TAB", 0x0a: "LF", 0x0d: "CR", 0x1b: "ESC", 0xad: "SHY", 0x61c: "ALM", 0x200b: "ZWSP", 0x200e: "LRM", 0x200f: "RLM",
  0x2028: "LS", 0x2029: "PS", 0x202a: "LRE", 0x202b: "RLE", 0x202c: "PDF", 0x202d: "LRO", 0x202e: "RLO", 0x2060: "WJ",
  0x2066: "LRI", 0x2067: "RLI", 0x2068: "FSI", 0x2069: "PDI", 0xfeff: "BOM"
};
const codeOf = character => "U+" + character.codePointAt(0).toString(16).toUpperCase().padStart(4, "0");

// A text as nodes, with each control shown by its name instead.
function shown(text, keepsLines) {
  const nodes = [];
  const whole = keepsLines ? text.replace(/\r\n?/g, "\n") : text;
  let end = 0;
  const chip = character => {
    const code = codeOf(character);
    const title = `${code}, a character that is not seen`;
    return make("span", { class: "control", title }, controlNames[character.codePointAt(0)] || code);
  };
  const found = [...whole.matchAll(controls)].map(match => [match.index, match[0]]);
  if (!keepsLines) for (const match of whole.matchAll(/\n/g)) found.push([match.index, match[0]]);
  found.sort((a, b) => a[0] - b[0]);
  for (const [index, character] of found) {
    if (keepsLines && character === "\t") continue;
    if (index > end) nodes.push(whole.slice(end, index));
    nodes.push(chip(character));
    end = index + character.length;
  }
  if (end < whole.length) nodes.push(whole.slice(end));
  return nodes;
}

// A text of somebody else's on one line, apart from the direction of what is around it.
const foreign = (text, otherwise) =>
  text ? make("bdi", { class: "foreign" }, shown(text)) : make("span", { class: "absent" }, otherwise || "(none)");
// The same where only a text fits.
const plain = text => String(text).replace(controls, character => `[${codeOf(character)}]`).replace(/\n/g, "[U+000A]");

// A property ------------------------------------------------------------------------------------------------------
const objects = data.objects;
const isChanged = property => property.length > 2;
const propertiesOf = index => (index === undefined || !objects[index] || !objects[index].properties) ? [] : objects[index].properties;

function showProperty(property, kind) {
  const [tag, name, writable] = data.tags[property[0]];
  const value = text => text === null ? make("span", { class: "absent" }, "not there")
    : text === "" ? make("span", { class: "absent" }, "empty") : make("bdi", { class: "foreign" }, shown(text, true));
  const row = make("div", { class: "prop", role: "listitem" });
  const badges = [];
  if ((kind === "store" && writable & 1) || (kind === "folder" && writable & 2))
    badges.push(make("span", { class: "badge accent", title: "The library leaves it writable for its host" }, "writable"));
  row.append(make("div", null, make("code", null, foreign(name)), " ", badges, make("div", { class: "tag mono" }, tag)));
  const values = make("div");
  if (isChanged(property)) {
    const rule = property[3] >= 0 ? data.rules[property[3]] : null;
    row.classList.add("changed");
    if (!rule) row.classList.add("unexplained");
    values.append(
      make("div", { class: "value was" }, make("span", { class: "side" }, "PST provider"), value(property[2])),
      make("div", { class: "value" }, make("span", { class: "side" }, "archive"), value(property[1])),
      make("div", { class: "why" }, rule ? `Changed: ${rule}` : "Changed, and by no rule of the library's: the host gives it, or the PST provider computes it"));
  } else {
    values.append(make("div", { class: "value" }, value(property[1])));
  }
  row.append(values);
  return row;
}

function showProperties(index, wanted) {
  const kind = objects[index] ? objects[index].kind : "";
  const list = make("div", { class: "props", role: "list" });
  // What was changed comes first.
  const all = propertiesOf(index);
  for (const property of [...all.filter(isChanged), ...all.filter(property => !isChanged(property))])
    if (!wanted || wanted(property)) list.append(showProperty(property, kind));
  if (!list.firstChild) list.append(make("p", { class: "empty" }, "No property."));
  return list;
}

const changedIn = index => propertiesOf(index).filter(isChanged).length;

// Lists that are walked through with the keyboard ------------------------------------------------------------------
// `size` and `at` tell of the items, `choose` is called with the number of the chosen one.
function walk(container, size, at, choose, extra) {
  let current = -1;
  const go = (index, scrolls) => {
    if (size() === 0) return;
    index = Math.max(0, Math.min(size() - 1, index));
    const item = at(index);
    if (current >= 0 && current < size()) at(current).setAttribute("aria-selected", "false");
    for (const other of container.querySelectorAll('[aria-selected="true"]')) other.setAttribute("aria-selected", "false");
    current = index;
    item.setAttribute("aria-selected", "true");
    container.setAttribute("aria-activedescendant", item.id);
    if (scrolls) item.scrollIntoView({ block: "nearest" });
    choose(index);
  };
  container.addEventListener("keydown", event => {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    const steps = { ArrowDown: 1, ArrowUp: -1, PageDown: 10, PageUp: -10 };
    let target = null;
    if (event.key in steps) target = current + steps[event.key];
    else if (event.key === "Home") target = 0;
    else if (event.key === "End") target = size() - 1;
    else if (extra && extra(event)) { event.preventDefault(); return; }
    if (target === null) return;
    event.preventDefault();
    go(target, true);
  });
  return { go, reset: () => { current = -1; container.removeAttribute("aria-activedescendant"); } };
}

// The panels -------------------------------------------------------------------------------------------------------
function summaryPanel() {
  const counts = data.counts;
  const card = (value, text, kind) => make("div", { class: "box card" },
    make("b", kind ? { class: kind } : null, value), make("span", { class: "muted" }, text));
  const levels = level => data.log.filter(entry => entry[0] === level).length;
  const panel = make("div", { class: "stack" });
  if (data.problems.length) {
    panel.append(make("section", { class: "box", id: "problems" }, make("h2", null, "What went wrong"),
      make("ul", { class: "inside" }, data.problems.map(text => make("li", null, foreign(text))))));
  }
  panel.append(make("div", { class: "cards" },
    card(count(counts.messages), `${counts.messages === 1 ? "message" : "messages"} in ${plural(counts.folders + 1, "folder", "folders")}`),
    card(count(counts.changed), `of ${plural(counts.properties, "property", "properties")} changed by the wrapper`),
    card(count(counts.unexplained), "changes without a rule that explains them"),
    card(`${count(counts.refused)} of ${count(counts.attempted)}`, "modifying calls refused"),
    card(count(levels("error") + levels("exception")), `errors and exceptions in the log, ${plural(levels("warning"), "warning", "warnings")}`)));
  const facts = [
    ["Archive", data.archive], ["Profile", data.profile], ["Message service", data.service], ["Host's module", data.module],
    ["Wrappers", data.setting], ["Library", "KivNst " + data.library], ["System", data.system]];
  panel.append(make("section", { class: "box" }, make("h2", null, "Where it is from"),
    make("dl", { class: "inside facts" },
      facts.filter(([, value]) => value).map(([name, value]) => [make("dt", null, name), make("dd", null, foreign(value))]))));
  const changed = make("section", { class: "box" }, make("h2", null, "What the wrapper changed in the store"));
  if (!data.compared) changed.append(make("p", { class: "empty" }, "Nothing was compared: ", foreign((data.notCompared || "the archive could not be opened").replace(/\.$/, "")), "."));
  else changed.append(showProperties(0, isChanged));
  panel.append(changed);
  return panel;
}

function mailPanel() {
  const folders = data.folders;
  const tree = make("div", { class: "scroll tree", role: "tree", tabindex: "0", "aria-label": "Folders" });
  const items = folders.map((folder, index) => {
    const item = make("div", {
      class: "item", role: "treeitem", id: `folder-${index}`, "aria-level": folder.depth + 1, "aria-selected": "false",
      title: `${plural(folder.messages, "message", "messages")}, ${count(folder.unread)} unread, ${count(folder.hidden)} hidden`
    }, foreign(folder.name, "(no name)"), make("span", { class: "count" }, count(folder.messages) + (folder.hidden ? ` + ${count(folder.hidden)}` : "")));
    item.style.setProperty("--depth", Math.min(folder.depth, 12));
    return item;
  });
  tree.append(...items);
  const reading = make("article", { class: "box reading scroll", tabindex: "0", "aria-label": "Message", "aria-live": "polite" });
  const heading = make("h2");
  const search = make("input", { type: "search", "aria-label": "Filter the messages by subject and sender", placeholder: "Filter" });
  const list = make("div", { class: "scroll list", role: "listbox", tabindex: "0", "aria-label": "Messages" });
  const perBlock = 100;
  let rows = [];
  let elements = [];
  let generation = 0;

  const showRow = (row, index) => make("div", {
    class: "item" + (row[4] & 2 ? " unread" : ""), role: "option", id: `message-${index}`, "aria-selected": "false",
    "aria-setsize": rows.length, "aria-posinset": index + 1
  },
  make("span", { class: "subject" }, foreign(row[0], "(no subject)")),
  make("span", { class: "date" }, row[2].slice(0, 10)),
  make("span", { class: "from" }, foreign(row[1], "(no sender)")),
  make("span", null, row[4] & 4 ? make("span", { class: "badge" }, "hidden") : null,
    row[4] & 1 ? make("span", { class: "badge", title: "With attachments" }, "att.") : null));

  function render(until) {
    while (elements.length < rows.length && elements.length <= until) {
      const block = make("div", { class: "block", role: "none" });
      const begin = elements.length;
      const part = rows.slice(begin, begin + perBlock).map((row, offset) => showRow(row, begin + offset));
      if (part.length < perBlock) block.style.containIntrinsicSize = `auto ${part.length * 3.8}rem`;
      elements.push(...part);
      block.append(...part);
      list.append(block);
    }
  }
  function renderRest() {
    const mine = ++generation;
    const step = () => {
      if (mine !== generation || elements.length >= rows.length) return;
      render(elements.length + 4 * perBlock - 1);
      setTimeout(step, 0);
    };
    step();
  }

  let chosenFolder = 0;
  function showList() {
    const folder = folders[chosenFolder];
    const wanted = search.value.trim().toLowerCase();
    rows = wanted ? folder.rows.filter(row => row[0].toLowerCase().includes(wanted) || row[1].toLowerCase().includes(wanted)) : folder.rows;
    list.replaceChildren();
    elements = [];
    listWalk.reset();
    const left = folder.messages + folder.hidden - folder.rows.length;
    heading.replaceChildren(foreign(folder.name, "(no name)"), make("span", { class: "tally" },
      plural(rows.length, "message", "messages") + (wanted ? " found" : "") + (left > 0 ? `, ${count(left)} not listed` : "")));
    if (rows.length === 0) {
      list.append(make("p", { class: "empty" }, wanted ? "No message has that in its subject or sender." : "No messages."));
      reading.replaceChildren(make("p", { class: "empty" }, "No message is chosen."));
      return;
    }
    render(2 * perBlock - 1);
    listWalk.go(0, false);
    list.scrollTop = 0;
    renderRest();
  }

  function showMessage(row) {
    const parts = [];
    const detail = row.length > 5 ? data.details[row[5]] : null;
    parts.push(make("h2", null, foreign(row[0], "(no subject)")));
    if (!detail) {
      parts.push(make("p", { class: "muted" }, "From ", foreign(row[1], "(no sender)"), row[2] ? `, ${row[2]} UTC` : "", `, ${count(row[3])} bytes.`),
        make("p", { class: "muted" }, "Of this message the report has no more: --details N takes more of each folder's messages in."));
    } else {
      const person = (name, address) => [foreign(name, "(no name)"), address && address !== name ? [" ", make("span", { class: "address" }, "<", foreign(address), ">")] : null];
      const facts = [[ "From", person(detail.from, detail.fromAddress) ]];
      for (const kind of ["From", "To", "Cc", "Bcc", "?"]) {
        const those = detail.recipients.filter(recipient => recipient.kind === kind);
        if (those.length) facts.push([kind === "?" ? "Others" : kind === "From" ? "Originator" : kind,
          those.map((recipient, index) => [index ? ", " : null, person(recipient.name, recipient.address)]).flat()]);
      }
      const time = text => text.replace("T", " ").replace(/(:\d\d)\.\d+Z$/, "$1 UTC");
      if (detail.sent) facts.push(["Sent", time(detail.sent)]);
      if (detail.delivered) facts.push(["Delivered", time(detail.delivered)]);
      facts.push(["Class", foreign(detail.class)], ["Size", `${count(detail.size)} bytes`]);
      if (detail.attachments.length) {
        facts.push([detail.attachments.length === 1 ? "Attachment" : "Attachments", detail.attachments.map(attachment =>
          make("div", { class: "attachment" }, foreign(attachment.name, "(no name)"),
            make("span", { class: "muted small" }, `${attachment.kind}, ${count(attachment.size)} bytes`)))]);
      }
      parts.push(make("dl", { class: "facts" }, facts.map(([name, value]) => [make("dt", null, name), make("dd", null, value)])));
      const fold = (title, index) => {
        const changed = changedIn(index);
        const details = make("details", null, make("summary", null, title, make("span", { class: "tally" },
          `${count(propertiesOf(index).length)}${changed ? `, ${count(changed)} changed` : ""}`)));
        details.addEventListener("toggle", () => { if (details.open && !details.querySelector(".props")) details.append(showProperties(index)); });
        return details;
      };
      parts.push(fold("Properties of the message", detail.object));
      for (const attachment of detail.attachments)
        if (attachment.object !== undefined) parts.push(fold(["Properties of ", foreign(attachment.name, "an attachment")], attachment.object));
      const body = detail.body.replace(/^(?:[ \t]*[\r\n]+)+/, "").replace(/\s+$/, "");
      parts.push(body ? make("div", { class: "body", dir: "auto" }, shown(body, true))
        : make("p", { class: "body absent" }, "(no plain text)"));
    }
    reading.replaceChildren(make("div", { class: "message" }, parts));
    reading.scrollTop = 0;
  }

  const listWalk = walk(list, () => rows.length, index => { render(index); return elements[index]; }, index => showMessage(rows[index]),
    event => { if (event.key !== "Enter" && event.key !== " ") return false; reading.focus(); return true; });
  const treeWalk = walk(tree, () => folders.length, index => items[index], index => { chosenFolder = index; search.value = ""; showList(); },
    event => {
      if (event.key === "Enter" || event.key === " ") { list.focus(); return true; }
      if (event.key !== "ArrowLeft" && event.key !== "ArrowRight") return false;
      // To the folder above, or to the first one below.
      let target = chosenFolder;
      if (event.key === "ArrowRight" && folders[target + 1] && folders[target + 1].depth > folders[target].depth) ++target;
      if (event.key === "ArrowLeft") while (target > 0 && folders[target].depth >= folders[chosenFolder].depth) --target;
      if (folders[target].depth !== folders[chosenFolder].depth) treeWalk.go(target, true);
      return true;
    });
  tree.addEventListener("click", event => {
    const item = event.target.closest(".item");
    if (item) treeWalk.go(items.indexOf(item), false);
  });
  list.addEventListener("click", event => {
    const item = event.target.closest(".item");
    if (!item) return;
    listWalk.go(elements.indexOf(item), false);
    // Where the message stands below the list, and out of sight.
    if (reading.getBoundingClientRect().top > window.innerHeight * .8) reading.scrollIntoView();
  });
  search.addEventListener("input", showList);
  if (folders.length === 0) return make("p", { class: "box empty" }, "The report has no folders: the archive could not be opened.");
  // Where there is the most to see.
  let fullest = 0;
  folders.forEach((folder, index) => { if (folder.rows.length > folders[fullest].rows.length) fullest = index; });
  treeWalk.go(fullest, false);
  return make("div", { class: "mail" },
    make("section", { class: "box" }, make("h2", null, "Folders"), tree),
    make("section", { class: "box" }, heading, make("div", { class: "bar" }, search), list),
    reading);
}

function propertiesPanel() {
  const choice = make("select", { "aria-label": "Object" });
  const option = (index, text) => { if (index !== undefined) choice.append(make("option", { value: index }, `${text} (${count(propertiesOf(index).length)}, ${count(changedIn(index))} changed)`)); };
  if (objects.length) option(0, "The store");
  for (const folder of data.folders) option(folder.object, "Folder " + "\u2002".repeat(Math.min(folder.depth, 8)) + plain(folder.name || "(no name)"));
  for (const detail of data.details) {
    option(detail.object, "Message " + plain(detail.subject || "(no subject)").slice(0, 80));
    for (const attachment of detail.attachments) option(attachment.object, "Attachment " + plain(attachment.name || "(no name)").slice(0, 80));
  }
  const search = make("input", { type: "search", "aria-label": "Filter by name, tag or value", placeholder: "Filter" });
  const only = make("input", { type: "checkbox" });
  const place = make("div");
  const note = make("p", { class: "inside small muted" });
  function show() {
    const wanted = search.value.trim().toLowerCase();
    const index = Number(choice.value);
    place.replaceChildren(showProperties(index, property => (!only.checked || isChanged(property)) &&
      (!wanted || [data.tags[property[0]][0], data.tags[property[0]][1], property[1] || "", property[2] || ""].some(text => text.toLowerCase().includes(wanted)))));
    const object = objects[index];
    const kind = object ? object.kind : "";
    note.replaceChildren(
      object && !object.compared ? "Nothing is compared here, so that no change shows. " : "",
      data.hostDecides ? "What may be written is the host's affair; what came of the calls stands under Writes."
        : !data.readOnly ? "Modification is on: the wrappers let every property be written."
        : kind === "store" ? "Writing any property is refused with MAPI_E_NO_ACCESS, but for those marked as writable, which the library leaves to its host."
          : kind === "folder" ? "Writing any property of a read-only folder is refused with MAPI_E_NO_ACCESS, but for those marked as writable."
            : kind === "message" ? "Writing any property of a read-only message is refused with MAPI_E_NO_ACCESS." : "What an attachment's properties are is not changed.");
  }
  choice.addEventListener("change", show);
  search.addEventListener("input", show);
  only.addEventListener("change", show);
  show();
  return make("section", { class: "box" },
    make("div", { class: "bar" }, make("label", null, choice), make("label", null, search), make("label", { class: "check" }, only, "changed only")), note, place);
}

function writesPanel() {
  if (!data.attempts) return make("p", { class: "box empty" }, "No call was attempted: ", foreign((data.notTried || "the archive could not be opened").replace(/\.$/, "")), ".");
  const choice = make("select", { "aria-label": "Outcome" }, make("option", { value: "" }, "All outcomes"));
  for (const outcome of ["refused", "succeeded", "failed"])
    choice.append(make("option", { value: outcome }, `${outcome} (${count(data.attempts.filter(row => row[3] === outcome).length)})`));
  const body = make("tbody");
  const kinds = { refused: "good", succeeded: "accent", failed: "note" };
  const show = () => body.replaceChildren(...data.attempts.filter(row => !choice.value || row[3] === choice.value).map(row =>
    make("tr", null, make("td", null, row[0]), make("td", { class: "mono" }, row[1]),
      make("td", null, make("span", { class: "badge " + (kinds[row[3]] || "") }, row[3]), " ", make("span", { class: "mono" }, row[2])),
      make("td", { class: "lines" }, row[4].map(line => make("div", null, foreign(line)))))));
  choice.addEventListener("change", show);
  show();
  return make("section", { class: "box" },
    make("div", { class: "bar" }, make("label", null, choice), make("span", { class: "muted small" },
      `Made on an archive of their own with a copy of one message, behind ${data.setting}. The archive itself is ${data.unchanged ? "what it was before." : "NOT what it was before."}`)),
    make("table", { class: "writes" }, make("thead", null, make("tr", null, ["On a", "Call", "What came of it", "Lines of the log"].map(title => make("th", { scope: "col" }, title)))), body));
}

function logPanel() {
  const levels = ["error", "exception", "warning", "action", "trace"];
  const kinds = { error: "bad", exception: "bad", warning: "note", action: "accent", trace: "" };
  const boxes = levels.map(level => make("input", { type: "checkbox", value: level, checked: true }));
  const list = make("div", { class: "log", role: "list" });
  const show = () => {
    const on = new Set(boxes.filter(box => box.checked).map(box => box.value));
    list.replaceChildren(...data.log.filter(entry => on.has(entry[0])).map(([level, time, text, details]) =>
      make("div", { class: "entry", role: "listitem" }, make("span", { class: "time" }, time),
        make("span", null, make("span", { class: "badge " + (kinds[level] || "") }, level)),
        make("span", { class: "text" }, foreign(text), details.map(line => make("div", { class: "muted" }, foreign(line)))))));
    if (!list.firstChild) list.append(make("p", { class: "empty" }, "No lines."));
  };
  boxes.forEach(box => box.addEventListener("change", show));
  show();
  return make("section", { class: "box" },
    make("div", { class: "bar" }, levels.map((level, index) => make("label", { class: "check" }, boxes[index],
      `${level} (${count(data.log.filter(entry => entry[0] === level).length)})`))),
    data.logLost ? make("p", { class: "inside muted" }, `${plural(data.logLost, "further line", "further lines")} left out.`) : null, list);
}

function modulesPanel() {
  const table = modules => make("table", { class: "modules" },
    make("thead", null, make("tr", null, ["Module", "Version", "What it is", "Folder"].map(title => make("th", { scope: "col" }, title)))),
    make("tbody", null, modules.map(([name, version, description, folder, role]) => make("tr", null,
      make("td", { class: "mono" }, foreign(name)), make("td", { class: "mono" }, version || make("span", { class: "absent" }, "no version")),
      make("td", null, role ? [make("span", { class: "badge accent" }, role), " "] : null, description ? foreign(description) : ""),
      make("td", { class: "mono" }, foreign(folder))))));
  const special = data.modules.filter(module => module[4]);
  const others = data.modules.filter(module => !module[4]);
  return make("div", { class: "stack" },
    make("section", { class: "box" }, make("h2", null, "What takes part"), table(special)),
    make("section", { class: "box" }, make("h2", null, "The process's other modules"), table(others)));
}

// The frame --------------------------------------------------------------------------------------------------------
document.getElementById("name").replaceChildren(foreign(data.store || data.archive, "Archive report"));
document.getElementById("about").replaceChildren(`Archive report of ${data.created}, by archive-browser ${data.tool}`);
document.title = `Archive report: ${plain(data.store || data.archive || "no archive")}`;

const tabs = [
  ["summary", "Summary", data.problems.length || "", summaryPanel], ["mail", "Mail", data.counts.messages, mailPanel],
  ["properties", "Properties", data.counts.changed, propertiesPanel], ["writes", "Writes", data.counts.attempted, writesPanel],
  ["log", "Log", data.log.length, logPanel], ["modules", "Modules", data.modules.length, modulesPanel]];
const bar = document.getElementById("tabs");
const main = document.getElementById("panels");
const buttons = tabs.map(([id, name, tally]) => make("button", { role: "tab", id: `tab-${id}`, type: "button", "aria-controls": `panel-${id}` },
  name, tally !== "" ? make("span", { class: "tally" }, count(tally)) : null));
const panels = tabs.map(([id]) => make("div", { role: "tabpanel", id: `panel-${id}`, "aria-labelledby": `tab-${id}`, hidden: true }));
function choose(index, focuses) {
  buttons.forEach((button, other) => {
    button.setAttribute("aria-selected", String(other === index));
    button.tabIndex = other === index ? 0 : -1;
    panels[other].hidden = other !== index;
  });
  // A part is made when it is first looked at.
  if (!panels[index].firstChild) panels[index].append(tabs[index][3]());
  if (focuses) buttons[index].focus();
  history.replaceState(null, "", `#${tabs[index][0]}`);
}
bar.addEventListener("click", event => {
  const button = event.target.closest("button");
  if (button) choose(buttons.indexOf(button), false);
});
bar.addEventListener("keydown", event => {
  const current = buttons.indexOf(document.activeElement);
  const targets = { ArrowRight: (current + 1) % buttons.length, ArrowLeft: (current + buttons.length - 1) % buttons.length, Home: 0, End: buttons.length - 1 };
  if (current < 0 || !(event.key in targets)) return;
  event.preventDefault();
  choose(targets[event.key], true);
});
bar.append(...buttons);
main.append(...panels);
const asked = () => Math.max(0, tabs.findIndex(([id]) => `#${id}` === location.hash));
window.addEventListener("hashchange", () => choose(asked(), false));
choose(asked(), false);
document.documentElement.dataset.ready = "yes";
})();
