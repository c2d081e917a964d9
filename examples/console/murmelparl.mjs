// murmelparl.js as a module; it sets the global MurmelParl too.
import './murmelparl.js';

export const { Link, LinkError, STEPS, kindOf } = globalThis.MurmelParl;
