/** What is known about a sample beside its data. */
package com.qel.dds.subscription;
