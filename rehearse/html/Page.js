"use strict";
// Adds to a page that can be read without it: zoom, the filter, the keyboard in long lists, the log around an event.
(() => {
  const byId = (id) => document.getElementById(id);
  const events = byId("events"), lanes = byId("lanes"), cursor = byId("cursor"), around = byId("around");
  const links = Array.from(events.querySelectorAll("a"));
  const names = Array.from(lanes.querySelectorAll("li > a"));
  document.querySelectorAll(".zoom, .find, .hint").forEach((one) => { one.hidden = false; });

  // One stop of the tab key for a list of a thousand; arrows move inside it.
  const rove = (box, all, onChoose) => {
    let current = all[0];
    const stopAt = (link) => {
      if (current) current.tabIndex = -1;
      current = link;
      link.tabIndex = 0;
    };
    all.forEach((link) => { link.tabIndex = -1; });
    if (current) current.tabIndex = 0;
    box.addEventListener("focusin", (event) => {
      const link = event.target.closest("a");
      if (link && link !== current) stopAt(link);
    });
    box.addEventListener("keydown", (event) => {
      const link = event.target.closest("a");
      if (!link || event.ctrlKey || event.altKey || event.metaKey) return;
      const seen = all.filter((one) => !one.parentElement.hidden);
      const at = seen.indexOf(link);
      const to = { ArrowDown: at + 1, ArrowUp: at - 1, Home: 0, End: seen.length - 1, PageDown: Math.min(at + 10, seen.length - 1),
        PageUp: Math.max(at - 10, 0) }[event.key];
      if (to === undefined || !seen[to]) return;
      event.preventDefault();
      seen[to].focus();
      if (onChoose && !around.hidden) onChoose(seen[to]);
    });
    return stopAt;
  };

  // --- The log: one text, taken apart when it is first asked for.
  let log = null, first = 0, last = 0, place = -1, chosen = null;
  const linesOfLog = () => {
    if (log === null) {
      log = Array.from(document.querySelectorAll("#all pre"), (block) => block.textContent).join("").split("\n");
      if (log.length && log[log.length - 1] === "") log.pop();
    }
    return log;
  };
  const showLog = () => {
    const lines = linesOfLog(), excerpt = byId("excerpt"), said = byId("said");
    excerpt.textContent = "";
    excerpt.hidden = place === -1 || lines.length === 0;
    byId("before").disabled = excerpt.hidden || first === 0;
    byId("after").disabled = excerpt.hidden || last === lines.length;
    if (excerpt.hidden) {
      said.textContent = said.dataset.none;
      return;
    }
    excerpt.append(lines.slice(first, place).map((line) => "  " + line + "\n").join(""));
    const mark = document.createElement("mark");
    mark.textContent = "▶ " + (lines[place] ?? "");
    excerpt.append(mark, "\n" + lines.slice(place + 1, last).map((line) => "  " + line + "\n").join(""));
    const numbers = [first + 1, last, lines.length];
    said.textContent = said.dataset.text.replace(/\{\}/g, () => String(numbers.shift()));
    return mark;
  };
  const moveCursor = () => {
    cursor.hidden = chosen === null;
    if (chosen === null) return;
    const lane = lanes.querySelector(".axis > svg").getBoundingClientRect();
    const left = lane.left - lanes.getBoundingClientRect().left - lanes.clientLeft + lanes.scrollLeft;
    cursor.style.left = left + lane.width * Number(chosen.dataset.x) / 100 - 1 + "px";
    cursor.style.height = lanes.scrollHeight + "px";
  };
  const choose = (link) => {
    if (chosen) chosen.removeAttribute("aria-current");
    lanes.querySelectorAll(".chosen").forEach((one) => { one.classList.remove("chosen"); });
    chosen = link;
    link.setAttribute("aria-current", "true");
    const lines = linesOfLog();
    place = link.dataset.l === undefined ? -1 : Math.min(Number(link.dataset.l), lines.length - 1);
    first = Math.max(0, place - 15);
    last = Math.min(lines.length, place + 45);
    byId("h-around").textContent = byId("h-around").dataset.at + " " + link.querySelector("time").textContent;
    around.hidden = false;
    const mark = showLog();
    if (mark) byId("excerpt").scrollTop = Math.max(0, mark.offsetTop - byId("excerpt").offsetTop - 40);
    if (link.dataset.p !== undefined) {
      const lane = lanes.querySelector('li[data-p="' + link.dataset.p + '"]');
      lane.classList.add("chosen");
      const top = lane.offsetTop, box = lanes.clientHeight;
      if (top < lanes.scrollTop + 24 || top + 28 > lanes.scrollTop + box) lanes.scrollTop = top - box / 2;
    }
    moveCursor();
  };
  const stopAtEvent = rove(events, links, choose);
  rove(lanes, names);
  events.addEventListener("click", (event) => {
    const link = event.target.closest("a");
    if (!link) return;
    event.preventDefault();
    choose(link);
  });
  byId("before").addEventListener("click", () => { first = Math.max(0, first - 50); showLog(); byId("excerpt").scrollTop = 0; });
  byId("after").addEventListener("click", () => {
    last = Math.min(log.length, last + 50);
    showLog();
    byId("excerpt").scrollTop = byId("excerpt").scrollHeight;
  });
  const close = () => {
    around.hidden = true;
    if (chosen) chosen.focus();
  };
  byId("close").addEventListener("click", close);
  document.addEventListener("keydown", (event) => {
    if (event.key === "Escape" && !around.hidden) close();
  });

  // --- Zoom
  let zoom = 1;
  // Names appear where they fit, which the width decides: the narrowest lane has 230 pixels.
  const showWhatFits = (width) => {
    for (const step of [2, 4, 8, 16, 32, 64, 128]) lanes.classList.toggle("x" + step, width >= step * 230);
  };
  const showOnScreen = () => { showWhatFits((lanes.clientWidth - lanes.querySelector(".axis > span").offsetWidth) * zoom); };
  const zoomTo = (level, atX) => {
    const next = Math.min(64, Math.max(1, level));
    const label = lanes.querySelector(".axis > span").offsetWidth;
    const middle = atX === undefined ? (label + lanes.clientWidth) / 2 : atX;
    const share = (lanes.scrollLeft + middle - label) / zoom;
    zoom = next;
    lanes.style.setProperty("--zoom", String(zoom));
    showOnScreen();
    lanes.scrollLeft = share * zoom - middle + label;
    byId("level").textContent = zoom + "×";
    byId("out").disabled = byId("fit").disabled = zoom === 1;
    byId("in").disabled = zoom === 64;
    moveCursor();
  };
  byId("in").addEventListener("click", () => zoomTo(zoom * 2));
  byId("out").addEventListener("click", () => zoomTo(zoom / 2));
  byId("fit").addEventListener("click", () => zoomTo(1));
  lanes.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    if (event.key === "+") zoomTo(zoom * 2);
    else if (event.key === "-") zoomTo(zoom / 2);
    else if (event.key === "0") zoomTo(1);
  });
  lanes.addEventListener("wheel", (event) => {
    if (!event.ctrlKey) return;
    event.preventDefault();
    zoomTo(event.deltaY < 0 ? zoom * 2 : zoom / 2, event.clientX - lanes.getBoundingClientRect().left);
  }, { passive: false });
  zoomTo(1);
  window.addEventListener("resize", () => { showOnScreen(); moveCursor(); });

  // A click on a lane chooses its mark, or the port's event that is nearest in time.
  lanes.addEventListener("click", (event) => {
    const lane = event.target.closest("svg.lane");
    if (!lane) return;
    const mark = event.target.closest("[data-e]"), port = lane.parentElement.dataset.p;
    const box = lane.getBoundingClientRect(), at = (event.clientX - box.left) * 100 / box.width;
    const near = mark ? links[Number(mark.dataset.e)]
      : links.filter((link) => link.dataset.p === port)
        .reduce((best, link) => !best || Math.abs(link.dataset.x - at) < Math.abs(best.dataset.x - at) ? link : best, null);
    if (!near) return;
    if (near.parentElement.hidden) filter("");
    choose(near);
    stopAtEvent(near);
    near.scrollIntoView({ block: "nearest" });
  });

  // --- Filter
  const find = byId("find"), found = byId("found");
  const filter = (text) => {
    if (find.value !== text) find.value = text;
    const wanted = text.trim().toLowerCase();
    let count = 0;
    links.forEach((link) => {
      const fits = !wanted || link.textContent.toLowerCase().includes(wanted)
        || (link.dataset.p !== undefined && names[Number(link.dataset.p)].textContent.toLowerCase().includes(wanted));
      link.parentElement.hidden = !fits;
      if (fits) ++count;
    });
    found.textContent = wanted ? count + " " + found.dataset.of + " " + links.length : "";
    const firstSeen = links.find((link) => !link.parentElement.hidden);
    if (firstSeen) stopAtEvent(firstSeen);
  };
  let waiting = 0;
  find.addEventListener("input", () => {
    clearTimeout(waiting);
    waiting = setTimeout(() => filter(find.value), 120);
  });

  // A page that is opened at an event or printed.
  const target = location.hash.startsWith("#e") ? byId(location.hash.slice(1)) : null;
  if (target && events.contains(target)) choose(target);
  window.addEventListener("beforeprint", () => {
    document.querySelectorAll("details.print").forEach((one) => { one.open = true; });
    showWhatFits(460); // the whole run, on a page upright
  });
  window.addEventListener("afterprint", showOnScreen);
})();
