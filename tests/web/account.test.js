import assert from 'node:assert/strict';
import test from 'node:test';

import { basicCredentials } from '../../web/js/account.js';

test('credentials are UTF-8 in base64', () => {
  assert.equal(basicCredentials('Aladdin', 'open sesame'), 'Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ==');
  assert.equal(basicCredentials('test', '123£'), 'Basic dGVzdDoxMjPCow=='); // the example of RFC 7617
});
