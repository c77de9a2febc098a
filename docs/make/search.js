// SPDX-License-Identifier: Apache-2.0
// The site's search. It loads its index as a script, which works from a disk, where a page may not fetch a file.
"use strict";
(() => {
  const MOST = 30;
  const AROUND = 90;  // characters of a result's text before and after the first word
  let sections = null;

  function load(then) {
    if (sections) return then();
    window.siteSections = given => {
      sections = given.map(each => ({...each, title_text: each.title.toLowerCase(), all: (each.title + " " + each.text).toLowerCase()}));
      then();
    };
    const script = document.createElement("script");
    script.src = base_url + "/search/search_index.js";
    document.head.append(script);
  }

  // Sections with all of the words: those with most of them in their titles first.
  function search(words) {
    const rank = each => words.filter(word => each.title_text.includes(word)).length;
    return sections.filter(each => words.every(word => each.all.includes(word)))
        .sort((a, b) => rank(b) - rank(a)).slice(0, MOST);
  }

  function shown(each, words) {
    const article = document.createElement("article");
    const link = document.createElement("a");
    link.href = base_url + "/" + each.location;
    link.textContent = each.title;
    const at = Math.max(0, each.text.toLowerCase().indexOf(words[0]));
    const text = document.createElement("p");
    text.textContent = (at > AROUND ? "... " : "") + each.text.slice(Math.max(0, at - AROUND), at + AROUND) + " ...";
    article.appendChild(document.createElement("h3")).append(link);
    article.append(text);
    return article;
  }

  function show() {
    const query = document.getElementById("mkdocs-search-query"), results = document.getElementById("mkdocs-search-results");
    const words = query.value.toLowerCase().split(/\s+/).filter(word => word.length > 1);
    if (!words.length) return results.replaceChildren();
    load(() => {
      const found = search(words).map(each => shown(each, words));
      results.replaceChildren(...found);
      if (!found.length) results.textContent = results.dataset.noResultsText;
    });
  }

  document.addEventListener("DOMContentLoaded", () => {
    const query = document.getElementById("mkdocs-search-query");
    if (query) query.addEventListener("input", show);
  });
})();
