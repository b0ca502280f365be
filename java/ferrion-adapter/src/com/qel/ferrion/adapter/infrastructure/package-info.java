/** Small classes that adapters are made of: descriptions, failures, and readers to build on. */
package com.qel.ferrion.adapter.infrastructure;
