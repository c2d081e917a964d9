// What the build fills in, for the scripts of the extension's own world.
'use strict';
const CONFIG = Object.freeze({
  version: '@MPBP_VERSION@',
  // By its host manifest.
  connector: 'example.murmel.parl',
  // The hosts that requests may go to, each with the hosts below it.
  requestHosts: '@MPBP_REQUEST_HOSTS@'.split(';'),
  style: `@MPBP_ELEMENT_CSS@`,
});
