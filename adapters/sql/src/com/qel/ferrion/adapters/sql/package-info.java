/**
 * Tables as streams, over JDBC: SQLite in the host's own process, or a PostgreSQL server.
 *
 * <p>All rows are read and written on the host's threads, inside the call that asks for it. One
 * daemon thread per connection looks whether there is more and signals; it never touches a sample.
 * They share a {@link com.qel.ferrion.adapters.sql.Pool} of database connections.
 */
package com.qel.ferrion.adapters.sql;
