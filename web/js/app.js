import { account, forgetAccount, signOut } from './account.js';
import { AdminPage } from './admin-page.js';
import { ApiError } from './api.js';
import { element } from './elements.js';
import { RecordingsPage } from './recordings-page.js';
import { SignInPage } from './sign-in-page.js';
import { StatePage } from './state-page.js';
import { WallPage } from './wall-page.js';

const pages = { '/': WallPage, '/recordings': RecordingsPage, '/state': StatePage, '/admin': AdminPage };
const names = { '/': 'wall', '/recordings': 'recordings', '/state': 'state', '/admin': 'admin' };

const main = document.getElementById('main');
let current = null;

/** Shows the page that the address names: "#/path?parameters". */
async function navigate() {
  const [path, query = ''] = (location.hash.slice(1) || '/').split('?');
  const Page = pages[path] ?? WallPage;
  current?.end();
  const page = path === '/sign-in' ? new SignInPage(() => entered('#/')) : new Page(new URLSearchParams(query));
  current = page;
  for (const link of document.querySelectorAll('nav a')) {
    if (link.dataset.page === (names[path] ?? 'wall')) {
      link.setAttribute('aria-current', 'page');
    } else {
      link.removeAttribute('aria-current');
    }
  }
  try {
    await page.show(main);
  } catch (error) {
    const asks = error.status === 401 && (await account().catch(() => null))?.canSignIn;
    if (current === page && asks) {
      current = new SignInPage(() => entered(location.hash));
      current.show(main);
    } else if (current === page) {
      const detail = error instanceof ApiError ? error.message : 'Something went wrong.';
      main.replaceChildren(element('p', { class: 'notice', role: 'alert' }, detail));
    }
    if (!(error instanceof ApiError)) {
      throw error;
    }
  }
  if (current !== page) {
    page.end();
  }
}

/** What a user may not do is not shown. */
async function showLinks() {
  const me = await account().catch(() => null);
  for (const link of document.querySelectorAll('nav [data-right]')) {
    link.hidden = !me?.rights.includes(link.dataset.right);
  }
  const signsOut = element('button', { type: 'button', onclick: async () => {
    await signOut();
    entered('#/');
  } }, 'Sign out');
  document.getElementById('account').replaceChildren(...[
    me?.user ?? '',
    me?.signedIn ? signsOut : null,
    !me?.user && me?.canSignIn ? element('a', { href: '#/sign-in' }, 'Sign in') : null,
  ].filter(Boolean));
}

/** Somebody else uses the page now. */
function entered(hash) {
  forgetAccount();
  showLinks();
  if (location.hash === hash) {
    navigate();
  } else {
    location.hash = hash;
  }
}

window.addEventListener('hashchange', navigate);
navigate();
showLinks();
