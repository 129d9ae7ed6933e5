
"use strict";
/* Tables that can be sorted and filtered. Without this they are as they are. */
(() => {
	const least_rows = 6;

	function sort(table, column, button) {
		const th = button.parentNode;
		const number = th.classList.contains("n");
		const before = th.getAttribute("aria-sort");
		/* Of numbers, the largest are wanted first. */
		const up = before ? before === "descending" : !number;
		const body = table.tBodies[0];
		const rows = Array.from(body.rows, (row, place) => {
			const cell = row.cells[column];

			return {
				row, place,
				key: number ? Number(cell.dataset.v)
					    : cell.textContent,
			};
		});

		for (const other of table.tHead.rows[0].cells)
			other.removeAttribute("aria-sort");
		th.setAttribute("aria-sort", up ? "ascending" : "descending");
		const compare = new Intl.Collator("en", { numeric: true }).compare;
		rows.sort((a, b) => {
			const by = number ? a.key - b.key
					  : compare(a.key, b.key);

			return (up ? by : -by) || a.place - b.place;
		});
		body.append(...rows.map((one) => one.row));
	}

	function add_filter(table) {
		const rows = Array.from(table.tBodies[0].rows);
		const line = document.createElement("p");
		const label = document.createElement("label");
		const input = document.createElement("input");
		const output = document.createElement("output");

		if (rows.length < least_rows)
			return;
		const texts = rows.map((row) => row.textContent.toLowerCase());
		const show = () => {
			const wanted = input.value.toLowerCase();
			let shown = 0;

			rows.forEach((row, i) => {
				row.hidden = !texts[i].includes(wanted);
				shown += !row.hidden;
			});
			output.value = wanted
				? shown + " of " + rows.length + " rows" : "";
		};

		line.className = "filter";
		input.type = "search";
		input.autocomplete = "off";
		input.spellcheck = false;
		label.append("Only rows with ", input);
		line.append(label, output);
		table.parentNode.before(line);
		input.addEventListener("input", show);
	}

	for (const table of document.querySelectorAll("table")) {
		Array.from(table.tHead.rows[0].cells).forEach((th, column) => {
			if (th.tagName !== "TH" ||
			    table.tBodies[0].rows.length < 2)
				return;

			const button = document.createElement("button");

			button.type = "button";
			button.append(...th.childNodes);
			th.append(button);
			button.addEventListener("click", () =>
				sort(table, column, button));
		});
		add_filter(table);
	}
})();
