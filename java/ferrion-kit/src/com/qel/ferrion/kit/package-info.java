/**
 * The kit for authors of adapters: settings that are declared once and checked. It stands on the
 * adapter API and the Java binding alone, and the bridge knows nothing of it.
 */
package com.qel.ferrion.kit;
