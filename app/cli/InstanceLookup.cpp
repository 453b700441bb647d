#include "InstanceLookup.h"

#include "registry/CorvantaManager.h"
#include "registry/Paths.h"

namespace {

InstanceLookup found(const CorvantaInstancePtr &instance) {
    return {instance, {}};
}

InstanceLookup notFound(const QString &error) {
    return {{}, error};
}

}  // namespace

InstanceLookup InstanceLookup::find(const QList<CorvantaInstancePtr> &instances,
                                    const QString &argument) {
    if (argument.isEmpty() || argument == u"default") {
        if (const CorvantaInstancePtr chosen = chooseDefaultInstance(instances)) {
            return found(chosen);
        }
        return notFound(instances.isEmpty() ? tr("no instances in the installation")
                                            : tr("no default instance among %n instances; name one",
                                                 nullptr, int(instances.size())));
    }
    QList<CorvantaInstancePtr> byName;
    for (const CorvantaInstancePtr &instance : instances) {
        if (instance->displayName() == argument) {
            byName.append(instance);
        }
    }
    if (byName.size() == 1) {
        return found(byName.first());
    }
    if (byName.size() > 1) {
        return notFound(
            tr("'%1' names %n instances; give the directory's path", nullptr, int(byName.size()))
                .arg(argument));
    }
    if (Paths::existsAsDirectory(argument)) {
        const QString wanted = Paths::resolveSymlinks(argument);
        for (const CorvantaInstancePtr &instance : instances) {
            if (Paths::resolveSymlinks(instance->directory()) == wanted) {
                return found(instance);
            }
        }
    }
    return notFound(tr("no such instance: %1").arg(argument));
}
