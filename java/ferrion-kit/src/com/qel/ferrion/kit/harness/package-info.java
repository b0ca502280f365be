/** A host in plain Java that adapters are tried out with, without bridge and relay. */
package com.qel.ferrion.kit.harness;
