// The page of a storage file: search, tooltip, and the chain of one stream. Names are only ever set
// as text.
"use strict";
(() => {
  const data = JSON.parse(document.getElementById("data").textContent);
  const { streams, band } = data;
  const picture = document.getElementById("picture");
  const panel = document.getElementById("panel");
  const search = document.getElementById("search");
  const count = document.getElementById("count");
  const tip = document.getElementById("tip");
  const shapes = [...picture.querySelectorAll("rect[data-s]")];
  const grouped = new Intl.NumberFormat("en").format;
  const kMostListed = 200;
  const kMostDrawn = 4000;
  let chosen = -1;
  let matches = null;  // a set of streams while something is searched for

  const blocksOf = (stream) => {
    const blocks = [];
    for (let i = 0; i < stream.blocks.length; i += 4) {
      const [offset, used, capacity, next] = stream.blocks.slice(i, i + 4);
      blocks.push({ offset, used, capacity, next });
    }
    return blocks;
  };

  const pathOf = (index) => {
    const names = [];
    let at = index;
    while (at >= 0 && names.length < 64) {
      names.push(streams[at].name);
      at = streams[at].parent;
    }
    if (at !== -1) names.push("\u2026");
    return names.reverse().join("/");
  };

  const element = (tag, text, ...children) => {
    const made = document.createElement(tag);
    if (text) made.textContent = text;
    made.append(...children);
    return made;
  };

  const drawn = (tag, attributes) => {
    const made = document.createElementNS("http://www.w3.org/2000/svg", tag);
    for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
    return made;
  };

  // --- Places in the band, as the picture was made

  const rowOf = (offset) => Math.floor(offset / band.bytesPerRow);
  const xOf = (offset) => band.left + ((offset % band.bytesPerRow) / band.bytesPerRow) * band.width;
  const yOf = (row) => band.top + row * band.pitch;

  const boxesOf = (from, to) => {
    const boxes = [];
    for (let at = from; at < to;) {
      const row = rowOf(at);
      const end = Math.min(to, (row + 1) * band.bytesPerRow);
      const width = Math.max(1.5, ((end - at) / band.bytesPerRow) * band.width);
      boxes.push({ x: xOf(at), y: yOf(row), width, height: band.rowHeight });
      at = end;
    }
    return boxes;
  };

  const jumpOf = (from, to) => {
    const rows = [rowOf(from), rowOf(to)];
    const [x1, x2] = [xOf(from), xOf(to)];
    const down = rows[1] > rows[0];
    const up = rows[1] < rows[0];
    const y1 = yOf(rows[0]) + (down ? band.rowHeight : 0);
    const y2 = yOf(rows[1]) + (up ? band.rowHeight : 0);
    const bow = down || up ? Math.min(90, Math.max(10, Math.abs(y2 - y1) * 0.45))
                           : Math.min(15, Math.max(3, Math.abs(x2 - x1) / 4));
    return `M${x1} ${y1}C${x1} ${down ? y1 + bow : y1 - bow} ${x2} ${up ? y2 + bow : y2 - bow} ${x2} ${y2}`;
  };

  const drawChain = (blocks) => {
    const group = drawn("g", { id: "chain" });
    const marker = drawn("marker", { id: "arrow", viewBox: "0 0 8 8", refX: 7, refY: 4, markerWidth: 7, markerHeight: 7, orient: "auto" });
    marker.append(drawn("path", { d: "M0 0L8 4L0 8z", style: "fill:#c2571a;stroke:none" }));
    group.append(marker);
    blocks.slice(0, kMostDrawn).forEach((block, index) => {
      for (const box of boxesOf(block.offset, Math.min(block.offset + block.capacity, data.fileSize)))
        group.append(drawn("rect", { ...box, "data-at": index }));
      const before = blocks[index - 1];
      const end = before ? Math.min(before.offset + before.capacity, data.fileSize) : block.offset;
      if (end !== block.offset)
        group.append(drawn("path", { d: jumpOf(end - 1, block.offset), "marker-end": "url(#arrow)" }));
    });
    picture.append(group);
  };

  // --- The panel

  const facts = (rows) => {
    const list = element("dl");
    for (const [name, value] of rows) list.append(element("dt", name), element("dd", value));
    return list;
  };

  const tableOf = (blocks) => {
    const head = element("tr", "", ...["offset", "used", "capacity", "next"].map((name) => element("th", name)));
    const body = element("tbody");
    blocks.slice(0, kMostListed * 5).forEach((block, index) => {
      const cells = [block.offset, block.used, block.capacity, block.next].map((value) => element("td", grouped(value)));
      const row = element("tr", "", ...cells);
      const point = (on) => picture.querySelectorAll(`#chain rect[data-at="${index}"]`).forEach((box) => box.classList.toggle("pointed", on));
      row.addEventListener("mouseenter", () => point(true));
      row.addEventListener("mouseleave", () => point(false));
      body.append(row);
    });
    return element("table", "", element("thead", "", head), body);
  };

  const showStream = () => {
    const stream = streams[chosen];
    const blocks = blocksOf(stream);
    const listed = Math.min(blocks.length, kMostListed * 5);
    panel.replaceChildren(
        element("h2", pathOf(chosen)),
        facts([["kind", stream.folder ? "folder" : "stream"], ["state", stream.state],
          ["length", grouped(stream.length)], ["blocks", grouped(stream.blockCount)]]));
    if (stream.blockCount) panel.append(tableOf(blocks));
    if (listed < stream.blockCount) panel.append(element("p", `and ${grouped(stream.blockCount - listed)} more blocks`));
  };

  const showMatches = () => {
    const list = [...matches].slice(0, kMostListed);
    panel.replaceChildren(element("h2", matches.size ? "Found" : "Nothing found"));
    for (const index of list) {
      const button = element("button", pathOf(index));
      button.addEventListener("click", () => choose(index));
      panel.append(button);
    }
    if (list.length < matches.size) panel.append(element("p", `and ${grouped(matches.size - list.length)} more`));
  };

  const showHelp = () => {
    panel.replaceChildren(element("h2", "Look closer"),
        element("p", "Click a block or an area to see the chain of its stream. Point at one to see what it is."));
    if (data.streamsLeftOut)
      panel.append(element("p", `${grouped(data.streamsLeftOut)} of the smallest streams are not in this page: the file has too many.`));
  };

  const update = () => {
    picture.querySelector("#chain")?.remove();
    picture.classList.toggle("choosing", chosen >= 0);
    picture.classList.toggle("searching", chosen < 0 && matches !== null);
    for (const shape of shapes) {
      const index = Number(shape.dataset.s);
      shape.classList.toggle("own", index === chosen);
      shape.classList.toggle("hit", matches !== null && matches.has(index));
    }
    count.textContent = matches === null ? "" : `${grouped(matches.size)} of ${grouped(streams.length)} streams`;
    if (chosen >= 0) {
      drawChain(blocksOf(streams[chosen]));
      showStream();
    } else if (matches !== null) {
      showMatches();
    } else {
      showHelp();
    }
  };

  const choose = (index) => {
    chosen = index;
    update();
  };

  const find = () => {
    const wanted = search.value.toLowerCase();
    matches = null;
    if (wanted) {
      const textOf = wanted.includes("/") ? pathOf : (index) => streams[index].name;
      matches = new Set();
      streams.forEach((_, index) => {
        if (textOf(index).toLowerCase().includes(wanted)) matches.add(index);
      });
    }
    choose(-1);
  };

  // --- The tooltip

  const about = (shape) => {
    const { s, b, o, z, n, l } = shape.dataset;
    const stream = s === undefined ? null : streams[s];
    const lines = [];
    if (stream && !(n && l)) lines.push(pathOf(Number(s)));
    if (l) lines.push(l);
    if (n && !l) lines.push(`and ${grouped(n - 1)} more beside it, drawn together`);
    const blocks = stream && !n ? blocksOf(stream) : [];
    const block = blocks.find((candidate) => candidate.offset === Number(b));
    if (block) {
      lines.push(`offset ${grouped(block.offset)}, used ${grouped(block.used)}, capacity ${grouped(block.capacity)}`);
    } else if (o !== undefined) {
      lines.push(`offset ${grouped(o)}, ${grouped(z)} bytes`);
    } else if (blocks.length && blocks.length === stream.blockCount) {
      const sum = (key) => grouped(blocks.reduce((all, each) => all + each[key], 0));
      const many = blocks.length > 1 ? ` in ${grouped(blocks.length)} blocks` : "";
      lines.push(`offset ${grouped(blocks[0].offset)}, used ${sum("used")}, capacity ${sum("capacity")}${many}`);
    }
    if (o === undefined) lines.push(`${grouped(z)} bytes in the file`);
    return lines.join("\n");
  };

  picture.addEventListener("pointermove", (event) => {
    const shape = event.target.closest("rect[data-s], rect[data-l]");
    tip.hidden = shape === null;
    if (shape === null) return;
    tip.textContent = about(shape);
    const [width, height] = [tip.offsetWidth, tip.offsetHeight];
    tip.style.left = `${Math.max(8, Math.min(event.clientX + 14, innerWidth - width - 8))}px`;
    tip.style.top = `${event.clientY + 18 + height > innerHeight ? event.clientY - height - 12 : event.clientY + 18}px`;
  });
  picture.addEventListener("pointerleave", () => { tip.hidden = true; });
  picture.addEventListener("click", (event) => {
    const shape = event.target.closest("rect[data-s]");
    choose(shape === null ? -1 : Number(shape.dataset.s));
  });
  search.addEventListener("input", find);
  document.addEventListener("keydown", (event) => {
    if (event.key === "/" && document.activeElement !== search) {
      event.preventDefault();
      search.focus();
      search.select();
    } else if (event.key === "Escape") {
      search.value = "";
      find();
    }
  });
  update();
})();
