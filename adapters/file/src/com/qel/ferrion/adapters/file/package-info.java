/**
 * Files as streams: CSV and JSON lines, read and written, one directory a connection.
 *
 * <p>All work on files is done on the host's threads, inside the call that asks for it. One daemon
 * thread per connection looks for more input and signals; it never touches a sample.
 */
package com.qel.ferrion.adapters.file;
