import { signIn } from './account.js';
import { element } from './elements.js';

/** Asks for a user's name and password. */
export class SignInPage {
  /** @param {() => void} done  called once somebody is signed in */
  constructor(done) {
    this.done = done;
  }

  async show(main) {
    this.problem = element('p', { class: 'bad', role: 'alert' });
    this.user = element('input', { name: 'user', autocomplete: 'username', required: true, autocapitalize: 'none',
      spellcheck: 'false' });
    this.password = element('input', { name: 'password', type: 'password', autocomplete: 'current-password',
      required: true });
    this.button = element('button', {}, 'Sign in');
    main.replaceChildren(element('form', { class: 'sign-in', onsubmit: (event) => this.#submit(event) },
      element('h2', {}, 'Sign in'),
      element('label', {}, 'Name', this.user),
      element('label', {}, 'Password', this.password),
      this.problem, this.button));
    this.user.focus();
  }

  end() {}

  async #submit(event) {
    event.preventDefault();
    this.button.disabled = true;
    this.problem.textContent = '';
    try {
      await signIn(this.user.value, this.password.value);
      this.done();
    } catch (error) {
      this.problem.textContent = error.status === 401 ? 'The name or the password is wrong.' : error.message;
      this.button.disabled = false;
      this.password.value = '';
      this.password.focus();
    }
  }
}
