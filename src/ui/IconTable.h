#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

// The bundled SVG of a symbol name the screens use ("house.fill"), as a Qt resource path
// (":/icons/tabler/home-filled.svg"); empty for an unknown name.
QString iconResource(QStringView symbol);

// Every symbol name the table knows, for tests.
QStringList iconSymbols();
