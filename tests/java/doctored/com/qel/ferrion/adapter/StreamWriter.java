package com.qel.ferrion.adapter;

import java.util.List;

/** Not the interface of the adapter API: its method returns nothing. */
public interface StreamWriter extends Entity {
    void write(List<Object> samples, List<Object> infos);
}
