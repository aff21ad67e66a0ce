"""What people who use a keyboard, a screen reader, or have weak eyes need of a page, as far as a script sees it (WCAG 2.1)."""

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

PROBLEMS = """
    const problems = [];
    const visible = (node) => node.checkVisibility({ checkOpacity: true, checkVisibilityCSS: true });
    const nameOf = (node) => (node.getAttribute('aria-label') ?? [...(node.labels ?? [])].map((l) => l.textContent).join(' ')
        ?? '').trim() || node.textContent.trim();
    for (const node of document.querySelectorAll('a, button, input, select, meter, video, [role=region], [role=log]')) {
      if (visible(node) && !nameOf(node)) {
        problems.push('no name: ' + node.outerHTML.slice(0, 80));
      }
    }
    for (const node of document.querySelectorAll('[tabindex]')) {
      if (node.tabIndex > 0) {
        problems.push('an order of its own: ' + node.outerHTML.slice(0, 80));
      }
    }
    const ids = [...document.querySelectorAll('[id]')].map((node) => node.id);
    problems.push(...ids.filter((id, i) => ids.indexOf(id) !== i).map((id) => 'id twice: ' + id));
    if (document.querySelectorAll('h1').length !== 1 || document.querySelectorAll('main').length !== 1
        || !document.documentElement.lang || !document.title) {
      problems.push('not one h1, one main, a language and a title');
    }
    for (const cell of document.querySelectorAll('th')) {
      if (!cell.scope) {
        problems.push('th without scope: ' + cell.textContent);
      }
    }
    const rgb = (text) => /rgba?\\(([^)]*)\\)/.exec(text)[1].split(/[ ,/]+/).map(Number);
    const luminance = ([r, g, b]) => [r, g, b].map((x) => x / 255)
        .map((x) => (x <= 0.04045 ? x / 12.92 : ((x + 0.055) / 1.055) ** 2.4))
        .reduce((sum, x, i) => sum + x * [0.2126, 0.7152, 0.0722][i], 0);
    const groundOf = (node) => {
      for (let at = node; at; at = at.parentElement) {
        const color = rgb(getComputedStyle(at).backgroundColor);
        if ((color[3] ?? 1) === 1) {
          return color;
        }
      }
      return [255, 255, 255];
    };
    for (const node of document.querySelectorAll('body *')) {
      const text = [...node.childNodes].some((child) => child.nodeType === 3 && child.data.trim());
      // What lies over video has a gradient of its own; what is disabled need not stand out.
      if (!text || !visible(node) || node.closest('.tile, .skip, :disabled, noscript')) {
        continue;
      }
      const [a, b] = [luminance(rgb(getComputedStyle(node).color)), luminance(groundOf(node))].sort((x, y) => y - x);
      if ((a + 0.05) / (b + 0.05) < 4.5) {
        problems.push(`contrast ${((a + 0.05) / (b + 0.05)).toFixed(2)}: ${node.outerHTML.slice(0, 80)}`);
      }
    }
    return problems;
"""


def check(browser):
    """Judges the page as it is displayed, in light and in dark."""
    for scheme in ["light", "dark"]:
        browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
        problems = browser.execute_script(PROBLEMS)
        assert not problems, (browser.current_url, scheme, problems)


def tab_stops(browser, most=60):
    """The texts or labels of what the Tab key reaches, in order, from the first link on."""
    browser.execute_script("document.querySelector('a').focus()")
    stops = []
    for _ in range(most):
        stop = browser.execute_script("""
            const at = document.activeElement;
            return at === document.body ? null : [at.getAttribute('aria-label') || at.textContent || at.name,
                getComputedStyle(at).outlineStyle]""")
        if stop is None:
            break
        assert stop[1] != "none", f"no sign of the focus on {stop[0]}"
        stops.append(stop[0])
        ActionChains(browser).send_keys(Keys.TAB).perform()
    return stops
