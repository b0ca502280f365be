package com.qel.ferrion.adapter;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.Properties;

/** What can be given new properties while it lives: connections, sessions, readers and writers. */
public interface Entity {
    /**
     * Takes over new properties. Called at any time between creation and deletion, by the thread
     * that uses the object, or by another one while nothing else of the object is called.
     *
     * <p>This one method hands its exception's message to the host as the text of the failure: say
     * which property is wrong and what would be right. An exception without a message shows as
     * "exception calling Entity.update()". Leave the object as it was when you throw.
     *
     * <p>The default does nothing.
     *
     * @param properties all of them, not the changed ones alone; null when there are none; yours to
     *     keep
     * @throws AdapterException when they cannot be applied
     */
    default void update(Properties properties) throws AdapterException {}
}
