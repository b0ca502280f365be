/**
 * The kit for authors of adapters: settings that are declared once and checked, and base classes
 * that do what every adapter has to do. It stands on the adapter API and the Java binding alone,
 * and the bridge knows nothing of it.
 */
package com.qel.ferrion.kit;
