package com.qel.ferrion.adapters.sql;

/** What becomes of rows that have NULL in an order column, and so no place in the order. */
enum OrderNulls { COUNT, LAST }
