"use strict";
// Adds to a table that can be read without it: sorting, a filter, and one stop of the tab key for thousands of links.
(() => {
  const byId = (id) => document.getElementById(id);
  const body = byId("list").tBodies[0], heads = Array.from(byId("list").tHead.rows[0].cells);
  const rows = Array.from(body.rows), words = byId("words"), verdicts = byId("verdicts"), shown = byId("shown");
  const texts = new Map(rows.map((row) => [row, row.textContent.toLowerCase()]));
  document.querySelectorAll(".find, .hint").forEach((one) => { one.hidden = false; });

  // --- One link can be reached by Tab; the arrow keys go on from there.
  const linkOf = (row) => row.cells[0].firstElementChild;
  let stop = null;
  const stopAt = (link) => {
    if (stop) stop.tabIndex = -1;
    stop = link;
    if (stop) stop.tabIndex = 0;
  };
  const seenLinks = () => Array.from(body.rows).filter((row) => !row.hidden).map(linkOf).filter(Boolean);
  rows.map(linkOf).filter(Boolean).forEach((link) => { link.tabIndex = -1; });
  body.addEventListener("focusin", (event) => {
    const link = event.target.closest("a");
    if (link) stopAt(link);
  });
  body.addEventListener("keydown", (event) => {
    const link = event.target.closest("a");
    if (!link || event.ctrlKey || event.altKey || event.metaKey) return;
    const seen = seenLinks(), at = seen.indexOf(link);
    const to = { ArrowDown: at + 1, ArrowUp: at - 1, Home: 0, End: seen.length - 1,
      PageDown: Math.min(at + 10, seen.length - 1), PageUp: Math.max(at - 10, 0) }[event.key];
    if (to === undefined || !seen[to]) return;
    event.preventDefault();
    seen[to].focus();
  });

  // --- The filter
  const filter = () => {
    const wanted = words.value.toLowerCase().split(/\s+/).filter(Boolean), verdict = verdicts.value;
    let count = 0;
    rows.forEach((row) => {
      const text = texts.get(row);
      row.hidden = !wanted.every((word) => text.includes(word)) || (verdict !== "" && row.cells[1].textContent !== verdict);
      if (!row.hidden) count += 1;
    });
    shown.textContent = shown.dataset.text.replace("{}", count).replace("{}", rows.length);
    if (!stop || stop.closest("tr").hidden) stopAt(seenLinks()[0]);
  };
  words.addEventListener("input", filter);
  verdicts.addEventListener("change", filter);

  // --- Sorting: numbers downwards first, since the machines with most of them are looked for.
  const order = new Intl.Collator(document.documentElement.lang, { numeric: true });
  const sortBy = (column) => {
    const head = heads[column], before = head.getAttribute("aria-sort");
    const isNumber = rows.length > 0 && rows[0].cells[column].className === "number";
    const isUp = before ? before === "descending" : !isNumber;
    heads.forEach((one) => one.removeAttribute("aria-sort"));
    head.setAttribute("aria-sort", isUp ? "ascending" : "descending");
    const keys = new Map(rows.map((row) => {
      const text = row.cells[column].textContent;
      return [row, isNumber ? Number(text) : text];
    }));
    const compare = isNumber ? (a, b) => a - b : order.compare;
    const sorted = rows.slice().sort((a, b) => compare(keys.get(a), keys.get(b)) * (isUp ? 1 : -1));
    body.append(...sorted);
    filter();
  };
  heads.forEach((head, column) => {
    const button = document.createElement("button");
    button.type = "button";
    button.textContent = head.textContent;
    head.textContent = "";
    head.append(button);
    button.addEventListener("click", () => sortBy(column));
  });
  heads[0].setAttribute("aria-sort", "ascending"); // as they come
  filter();
})();
