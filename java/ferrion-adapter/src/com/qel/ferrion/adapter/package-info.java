/**
 * What a Java adapter implements to take part in a data relay.
 *
 * <p>The host makes one {@link com.qel.ferrion.adapter.Adapter} by class name and asks it for
 * {@linkplain com.qel.ferrion.adapter.Connection connections}; a connection makes sessions, stream
 * readers (data that comes in from your side) and stream writers (data that goes out to it).
 *
 * <h2>Threads</h2>
 *
 * <p>All methods run on threads of the host. A session's readers and writers are called by one
 * thread at a time; different sessions may be served by different threads at once, and creation and
 * deletion may come from yet another thread.
 *
 * <p>Do not count on the <b>context class loader</b> of these threads. A session's thread has none
 * ({@code Thread.getContextClassLoader()} is null). The thread that makes and deletes has the VM's
 * for applications; in the calls of {@link com.qel.ferrion.adapter.Adapter} it has the adapter's
 * own if the host gave the adapter a class path of its own. Pass your own class's loader wherever a
 * library would look there ({@code ServiceLoader}, JDBC, JAXP and the like).
 *
 * <p>The one call in the other direction, {@link com.qel.ferrion.adapter.StreamReaderListener}, may
 * be made from any thread. Threads that an adapter starts should be daemons, and have to end in the
 * delete method that belongs to what started them: others keep the process from ending.
 *
 * <h2>Failures</h2>
 *
 * <p>Anything that a method throws, checked or not, is printed with its stack trace and reported to
 * the host as the failure of that one call; it never ends the host. Only {@link
 * com.qel.ferrion.adapter.Entity#update update} carries the exception's own message to the host, so
 * messages elsewhere should make sense in the log. {@code System.exit} ends the host.
 */
package com.qel.ferrion.adapter;
